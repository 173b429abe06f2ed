// The settings window and what the core takes from it.
#include "app/core.h"

#include "app/app_paths.h"
#include "app/script_toolbar.h"
#include "ui/main_window.h"
#include "ui/settings_window.h"

void core::build_settings_window()
{
    m_settings_window = std::make_unique<settings::window>(
        m_settings.get(), &m_actions, &m_autorun, m_application_path, m_window.get());
    m_settings_window->set_path_resolver(
        [this](const QString& file) { return app_paths::autorun_file(m_portable, m_application_path, file); });
    connect(m_settings_window.get(), &QDialog::accepted, this, &core::on_settings_accepted);
    connect(m_settings_window.get(), &settings::window::applied, this, &core::on_settings_applied);
    // Edits that weren't stored leave the toolbar as the file has it.
    connect(m_settings_window.get(), &QDialog::rejected, this, [this] { m_actions.load(*m_settings); });
    connect(m_window.get(), &main_window::settings, this, &core::on_window_settings);
}

void core::on_window_settings()
{
    if (!m_settings_window)
        return;
    m_settings_window->show();
    m_settings_window->raise();
    m_settings_window->activateWindow();
}

void core::on_settings_accepted()
{
    take_settings();
}

void core::on_settings_applied()
{
    take_settings();
}

void core::take_settings()
{
    if (!m_settings_window)
        return;
    m_settings_window->save();
    reload_settings();
    if (m_window)
        fill_toolbar(*m_window->scriptbar(), m_actions);
}
