// The interactive side of core: the window, the table's rows and the status bar.
#include "app/core.h"

#include "app/actions_menu.h"
#include "app/caps.h"
#include "app/fixed_names.h"
#include "app/options_menu.h"
#include "scripting/sapi.h"
#include "ui/about.h"
#include "ui/apply_pack.h"
#include "ui/dynwidgets_controller.h"
#include "ui/help.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/main_window.h"
#include "ui/port_setup.h"
#include "ui/problem_report.h"
#include "ui/settings_window.h"
#include "ui/task_edit.h"

#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QInputDialog>
#include <QMessageBox>
#include <QTableView>

namespace {
constexpr int window_listener = 0;
// A status bar that keeps up with a fleet ten times a second is as good as one that follows each row.
constexpr int status_bar_ms = 100;
}

void core::build_interface()
{
    m_window = std::make_unique<main_window>(*m_settings);
    main_window* w = m_window.get();

    // The log may be written from any thread; the pane is touched on the main thread only.
    m_history.add_listener(
        window_listener, m_options.log_filter,
        [w](const log_history::entry& e) {
            QMetaObject::invokeMethod(w, [w, text = e.text] { w->append_log(text); }, Qt::AutoConnection);
        },
        [this, w] {
            QStringList lines;
            for (const auto& e : m_history.entries(m_history.filter(window_listener)))
                lines << e.text;
            w->set_log(lines);
        });

    connect(w, &main_window::quit, this, &core::on_window_quit);
    connect(w, &main_window::import, this, &core::on_window_import);
    connect(w, &main_window::export_data, this, &core::on_window_export);
    connect(w, &main_window::export_report, this, &core::on_window_export_report);
    connect(w, &main_window::scan, this, &core::on_window_scan);
    connect(w, &main_window::run_list, this,
        qOverload<bool, bool, bool, QStringList>(&core::on_window_run_list));
    connect(w, &main_window::clear_list, this, &core::on_window_clear_list);
    connect(w, &main_window::add_element, this, &core::on_window_add_element);
    connect(w, &main_window::edit_element, this, &core::on_window_edit_element);
    connect(w, &main_window::delete_element, this, &core::on_window_delete_element);
    connect(w, &main_window::selection_request, this, &core::on_window_selection_request);
    connect(w, &main_window::copy_status, this, &core::on_window_copy_status);
    connect(w, &main_window::about, this, &core::on_window_about);
    connect(w, &main_window::help, this, &core::on_window_help);
    connect(w, &main_window::cmdline, this, &core::on_window_cmdline);
    connect(w, &main_window::lang, this, &core::on_window_lang);
    connect(w, &main_window::option_menu_executed, this, &core::on_window_option_menu_executed);
    m_actions_menu = std::make_unique<dynmenu::actions_menu>(w->menu_actions());
    m_actions_menu->build();
    connect(m_actions_menu.get(), &dynmenu::menu_prototype::menu_executed, this, &core::on_window_action_menu_executed);
    m_options_menu = std::make_unique<dynmenu::options_menu>(w->menu_options());
    m_options_menu->build();
    m_options_menu->load(*m_settings);
    // An option entry carries the option's ident first, then its value.
    connect(m_options_menu.get(), &dynmenu::menu_prototype::menu_executed, w,
        [w](scripting::commands, const QVariantList& args, bool checked) {
            emit w->option_menu_executed(args.value(0).toString(), args.mid(1), checked);
        });
    m_widgets = std::make_unique<dynwidgets::controller>(w);
    // Only to raise widget_changed: the core serves that name's attachments.
    m_widgets->attach_listener({}, &m_events);
    connect(m_widgets.get(), &dynwidgets::controller::button_clicked, w, &main_window::script_toolbar_btn);
    connect(w, &main_window::error_list, this, &core::on_window_error_list);
    connect(w, &main_window::apply_pack, this, &core::on_window_apply_pack);

    m_model = std::make_unique<main_model>();
    m_filter = std::make_unique<main_model_filter>();
    m_filter->setSourceModel(m_model.get());
    w->set_model(m_filter.get());
    connect(m_model.get(), &main_model::selection_changed, this, &core::on_window_model_selection_changed);
    w->set_offline(!m_remote_enabled);

    m_about = std::make_unique<about>(w);
    m_help = std::make_unique<help>(*m_settings, w);
    connect(m_help.get(), &help::cmd_clicked, this, &core::on_help_cmd_clicked);
    m_problems = std::make_unique<problem_report>(w);
    m_task_edit = std::make_unique<task_edit>(w);
    connect(m_task_edit.get(), &task_edit::added, this, &core::on_task_edit_added);
    connect(m_task_edit.get(), &task_edit::edited, this, &core::on_task_edit_edited);
    build_settings_window();
    build_console();
    m_apply_pack = std::make_unique<apply_pack>(w);
    connect(m_apply_pack.get(), &apply_pack::pack_accepted, this, &core::on_apply_pack_accepted);
    m_port_setup = std::make_unique<port_setup>(w);
    w->show();
}

QString core::address_text(const endpoint& ep) const
{
    return m_short_device_address_display ? ep.short_form() : ep.long_form();
}

void core::set_status(const QString& ident, const QString& text, status_mode mode)
{
    if (!m_model)
        return;
    m_model->update_status(ident, text);
    m_model->update_color(ident, main_model::status_color(mode));
}

void core::set_row_address(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (m_model && l)
        m_model->update_display(ident, address_text(l->get(tasks::keys::endpoint).value<endpoint>()));
}

void core::set_row_info(const QString& ident, const QString& serial, const QString& description)
{
    if (!m_model)
        return;
    const auto l = m_manager.find(ident);
    if (!serial.isEmpty())
        m_model->update_serial(ident, serial);
    if (l)
        m_model->update_mac(ident, l->get(tasks::keys::endpoint).value<endpoint>().mac);
    m_model->update_summary(ident, description);
}

void core::add_problem(const client::queued_data& qd, const QString& text)
{
    if (!m_problems)
        return;
    const auto l = m_manager.find(line_by_serial(qd.serial));
    const QString ep = l ? l->get(tasks::keys::endpoint).value<endpoint>().short_form() : QString();
    m_problems->add(QDateTime::currentDateTime(), client::kind_text(qd.type), ep, qd.serial, text);
    if (m_problems->isHidden())
        m_problems->show();
}

void core::on_window_error_list()
{
    if (m_problems)
        m_problems->show();
}

void core::warn(const QString& title, const QString& text)
{
    if (m_mode == interactive)
        QMessageBox::warning(m_window.get(), title, text);
    else
        log(fixed_names::sources::core, QStringLiteral("%1: %2").arg(title, text));
}

void core::set_running_state(bool running)
{
    if (!m_window)
        return;
    m_window->set_running(running);
    m_model->set_read_only(running);
}

void core::refresh_status_bar()
{
    if (!m_window)
        return;
    m_window->show_summary(summary().text());
    const uint running = m_manager.running_count();
    const uint limit = m_manager.effective_limit();
    if (running == 0) {
        set_running_state(false);
        m_window->show_status(tr("All tasks completed"));
    } else if (limit != 0) {
        m_window->show_status(tr("Running tasks: %1 out of %2 (limited to %3)").arg(running).arg(m_manager.launch_count()).arg(limit));
    } else {
        m_window->show_status(tr("Running tasks: %1 out of %2").arg(running).arg(m_manager.launch_count()));
    }
}

void core::refresh_status_bar_soon()
{
    if (!m_window)
        return;
    // The end of a run shows at once: it gives the buttons back.
    if (m_manager.running_count() == 0) {
        refresh_status_bar();
        return;
    }
    if (m_status_bar_due)
        return;
    m_status_bar_due = true;
    QTimer::singleShot(status_bar_ms, this, [this] {
        m_status_bar_due = false;
        refresh_status_bar();
    });
}

void core::show_status_message(const QString& text)
{
    if (m_window)
        m_window->show_status(text);
}

void core::on_window_import(const QString& file)
{
    import_task_file(file);
}

void core::on_window_export(const QString& file)
{
    export_task_file(file, false);
}

void core::on_window_add_element()
{
    if (!m_task_edit)
        return;
    m_task_edit->prepare_add();
    m_task_edit->show();
}

void core::on_window_edit_element(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!m_task_edit || !l)
        return;
    m_task_edit->prepare_edit(ident, l->get(tasks::keys::endpoint).value<endpoint>());
    m_task_edit->show();
}

void core::on_window_copy_status(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (l)
        QGuiApplication::clipboard()->setText(l->get(tasks::keys::result).value<tasks::common_data>().text);
}

void core::on_window_selection_request(model_structures::selection_type type)
{
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        bool selected = l->get(tasks::keys::selected).toBool();
        switch (type) {
        case model_structures::selection_type::all: selected = true; break;
        case model_structures::selection_type::inverted: selected = !selected; break;
        case model_structures::selection_type::none: selected = false; break;
        }
        l->set(tasks::keys::selected, selected);
        if (m_model)
            m_model->set_selected(ident, selected);
    }
}

void core::on_window_about()
{
    if (!m_about)
        return;
    about::contents c { fixed_names::display_name, caps::version_text(), caps::platform_text(), caps::table(),
        m_sapi->sapi_plugin_list() };
    m_about->set_contents(c);
    m_about->show();
    m_about->raise();
}

void core::on_window_help()
{
    if (!m_help)
        return;
    m_help->show();
    m_help->raise();
    m_help->activateWindow();
}

void core::on_help_cmd_clicked(const QString& cmd, bool execute)
{
    scripting::console* out = console();
    if (execute) {
        const QUuid ident = QUuid::createUuid();
        if (out)
            out->remember_line(ident, cmd);
        m_processor->execute_line(ident, cmd);
    } else if (out) {
        out->set_input(cmd);
    } else {
        // No console to complete it in: the clipboard keeps it for wherever it goes next.
        QGuiApplication::clipboard()->setText(cmd);
        show_status_message(tr("Command copied to the clipboard: %1").arg(cmd));
    }
}

void core::on_window_lang()
{
    const QStringList names = m_languages.keys();
    QStringList items;
    for (const QString& name : names)
        items << m_languages.value(name);
    bool ok = false;
    const int current = std::max(0, int(names.indexOf(m_current_language)));
    const QString chosen = QInputDialog::getItem(m_window.get(), tr("Choose language"), tr("Languages"), items, current, false, &ok);
    if (!ok)
        return;
    const QString name = names.value(items.indexOf(chosen));
    apply_language(name);
    m_settings->setValue(QStringLiteral("language"), name);
}
