// Rows of the device table: how they come, change and go, and their texts.
#include "app/core.h"

#include "app/fixed_names.h"
#include "delivery/task_list_password.h"
#include "tasks/task_list_file.h"
#include "ui/main_model.h"

void core::introduce(const task_element& element)
{
    m_manager.add_line(element.ident);
    auto l = m_manager.line(element.ident);
    l->set(tasks::keys::selected, true);
    l->set(tasks::keys::endpoint, QVariant::fromValue(element.ep));
    l->set(tasks::keys::ident, element.ident);
    l->set(tasks::keys::device, QVariant::fromValue(element.dev));
    log(element.ep.short_form(), tr("Introduced: flow ident %1").arg(element.ident), { fixed_names::tags::tasks });

    // What discovery knew stays (its network record carries the MAC that broadcasts
    // select); the rest comes from how the row reaches and logs in to the device.
    device dev = element.dev;
    if (dev.ip.isEmpty())
        dev.ip = element.ep.host;
    if (dev.port == 0)
        dev.port = element.ep.port;
    if (dev.user.isEmpty())
        dev.user = element.ep.user;
    if (dev.password.isEmpty() && !dev.password_is_hash)
        dev.password = element.ep.password;
    l->set(tasks::keys::device, QVariant::fromValue(dev));
    ensure_worker(*l, int(sdk::type::legacy));

    if (m_model)
        m_model->add_record(main_model::make_record(element.ident, address_text(element.ep), element.ep.mac));
}

QString core::line_by_serial(const QString& serial) const
{
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        if (l && l->get(tasks::keys::serial).toString() == serial)
            return ident;
    }
    return {};
}

void core::on_window_delete_element(const QString& ident)
{
    if (const auto l = m_manager.find(ident))
        retire_worker(*l);
    m_manager.remove_line(ident);
    if (m_model)
        m_model->remove_record(ident);
}

void core::on_window_model_selection_changed(const QString& ident, bool state)
{
    if (const auto l = m_manager.find(ident))
        l->set(tasks::keys::selected, state);
}

bool core::refused_as_row(const endpoint& ep)
{
    const QString problem = tasks::task_list_file::unwritable(ep);
    if (!problem.isEmpty())
        log(ep.short_form(), problem, { fixed_names::tags::tasks });
    return !problem.isEmpty();
}

void core::on_task_edit_added(const QList<endpoint>& data)
{
    for (const endpoint& ep : data) {
        if (!refused_as_row(ep))
            introduce(task_element(ep, device()));
    }
}

void core::on_task_edit_edited(const QString& ident, const endpoint& data)
{
    const auto l = m_manager.find(ident);
    if (!l || refused_as_row(data))
        return;
    l->set(tasks::keys::endpoint, QVariant::fromValue(data));
    auto dev = l->get(tasks::keys::device).value<device>();
    dev.ip = data.host;
    dev.port = data.port;
    dev.user = data.user;
    // The device logs in with the clear password; a digest found by a scan stays one while
    // the user leaves it as it was.
    const QString password = data.password_encrypted ? delivery::decrypt_task_list_password(data.password) : data.password;
    if (password != dev.password)
        dev.password_is_hash = false;
    dev.password = password;
    l->set(tasks::keys::device, QVariant::fromValue(dev));
    set_row_address(ident);
    if (sdk::prototype* worker = worker_of(*l))
        worker->update_device(dev);
}

QString core::source_of(const QString& ident) const
{
    const auto l = m_manager.find(ident);
    if (!l)
        return fixed_names::sources::core;
    return l->get(tasks::keys::endpoint).value<endpoint>().short_form();
}

