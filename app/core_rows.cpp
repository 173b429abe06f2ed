// Rows of the device table: how they come, change and go, and their texts.
#include "app/core.h"

#include "app/fixed_names.h"

#include <QMessageBox>

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
    // The line's worker is left alone, as the line may still be referenced by a queued report.
    m_manager.remove_line(ident);
}

void core::on_window_model_selection_changed(const QString& ident, bool state)
{
    if (const auto l = m_manager.find(ident))
        l->set(tasks::keys::selected, state);
}

void core::on_task_edit_added(const QList<endpoint>& data)
{
    for (const endpoint& ep : data)
        introduce(task_element(ep, device()));
}

void core::on_task_edit_edited(const QString& ident, const endpoint& data)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    l->set(tasks::keys::endpoint, QVariant::fromValue(data));
    auto dev = l->get(tasks::keys::device).value<device>();
    dev.ip = data.host;
    dev.port = data.port;
    dev.user = data.user;
    dev.password = data.password;
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

void core::set_status(const QString& ident, const QString& text, status_mode mode)
{
    Q_UNUSED(ident)
    Q_UNUSED(text)
    Q_UNUSED(mode)
}

void core::set_row_address(const QString& ident)
{
    Q_UNUSED(ident)
}

void core::set_row_info(const QString& ident, const QString& serial, const QString& description)
{
    Q_UNUSED(ident)
    Q_UNUSED(serial)
    Q_UNUSED(description)
}

void core::warn(const QString& title, const QString& text)
{
    if (m_mode == interactive)
        QMessageBox::warning(nullptr, title, text);
    else
        log(fixed_names::sources::core, QStringLiteral("%1: %2").arg(title, text));
}

void core::refresh_status_bar()
{
}

void core::add_problem(const client::queued_data& qd, const QString& text)
{
    Q_UNUSED(qd)
    Q_UNUSED(text)
}

void core::show_status_message(const QString& text)
{
    Q_UNUSED(text)
}
