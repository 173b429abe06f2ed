// Task list files: the import and export that scripts and the window reach.
#include "app/core.h"

#include "app/fixed_names.h"
#include "delivery/task_list_password.h"
#include "tasks/task_list_file.h"

#include <QCoreApplication>

int core::import_task_file(const QString& path)
{
    const QStringList tags { fixed_names::tags::core, fixed_names::tags::sapi };
    const tasks::task_list_file file = tasks::task_list_file::import_file(path);
    if (file.failed) {
        log(fixed_names::sources::sapi, file.error, tags);
        return 0;
    }
    int added = 0;
    for (const endpoint& record : file.records) {
        const endpoint ep = tasks::task_list_file::opened(record, delivery::decrypt_task_list_password);
        device dev;
        dev.ip = ep.host;
        dev.port = ep.port;
        dev.user = ep.user;
        dev.password = ep.password;
        introduce(task_element(ep, dev));
        ++added;
    }
    for (const auto& message : file.messages)
        log(fixed_names::sources::sapi, QCoreApplication::translate("sapi", "Line %1: %2").arg(message.line).arg(message.text), tags);
    log(fixed_names::sources::sapi, QCoreApplication::translate("sapi", "Successfully imported %1 tasks").arg(added), tags);
    show_status_message(QCoreApplication::translate("sapi", "Imported %1 tasks").arg(added));
    return added;
}

int core::export_task_file(const QString& path, bool selected_only)
{
    QVector<endpoint> endpoints;
    for (const QString& ident : selected_lines())
        // A password kept encrypted by an edit is opened, so the setting alone decides the file's form.
        endpoints << tasks::task_list_file::opened(
            m_manager.find(ident)->get(tasks::keys::endpoint).value<endpoint>(), delivery::decrypt_task_list_password);
    if (endpoints.isEmpty()) {
        if (!selected_only)
            warn(QCoreApplication::translate("sapi", "No tasks"), QCoreApplication::translate("sapi", "No selected tasks to export"));
        return 0;
    }
    return tasks::task_list_file::export_file(
        path, endpoints, m_encrypt_passwords_on_export, delivery::encrypt_task_list_password);
}
