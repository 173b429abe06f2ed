// The program's own update: the prompt for a new build and the hand-over to the updater program.
#include "app/core.h"

#include "app/fixed_names.h"
#include "ui/main_window.h"

#include <QCoreApplication>
#include <QDir>
#include <QMessageBox>

void core::on_updater_new_update_available(const updater::update_info& info)
{
    // The updater runs only with a window (see operate).
    if (m_mode != interactive)
        return;
    QMessageBox box(QMessageBox::Question, tr("Update available"),
        tr("<h3>Build %1 is available for updating.</h3>\nUpdate now?<br>\nIf you choose \"No\" the application will be "
           "updated on the next start.<br>\nIf you choose \"Cancel\" the update checking will be disabled.")
            .arg(info.build),
        QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, m_window.get());
    box.setInformativeText(updater::changes_html(info));
    const int answer = box.exec();
    if (answer == QMessageBox::Cancel) {
        m_updater.stop();
        warn(tr("Application update"), tr("Update checking is disabled until next start."));
        return;
    }
    const bool busy = m_manager.running_count() > 0;
    if (answer == QMessageBox::Yes && busy)
        warn(tr("Application update"), tr("Tasks are in progress at the moment, the update will be postponed until a restart."));
    m_updater.download(answer != QMessageBox::Yes || busy);
}

void core::on_updater_downloaded()
{
    // A postponed build waits in its file for the next start.
    if (m_updater.postponed())
        return;
    if (m_manager.running_count() > 0) {
        warn(tr("Application update"), tr("Tasks are in progress at the moment, the update will be postponed until a restart."));
        return;
    }
    if (!launch_updater(fixed_names::platform, m_updater.folder())) {
        warn(tr("Application update"),
            tr("Unable to start the updater program %1.")
                .arg(QDir::cleanPath(QDir(m_updater.folder()).filePath(updater::updater_program(fixed_names::platform)))));
        return;
    }
    log(fixed_names::sources::core, tr("The update is handed over to the updater program, the application quits."));
    QCoreApplication::quit();
}

void core::on_updater_download_failed(const QString& text)
{
    warn(tr("Ошибка обновления"), text);
}
