#pragma once

// A core in batch mode in a folder of its own, between simulated devices and a simulated update service, with
// the flows it ran counted. Header-only: the shared support library doesn't link the core.
#include "app/core.h"
#include "ui/main_model.h"
#include "tests/support/devsim_harness.h"
#include "tests/support/svcsim_harness.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QSettings>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace fleet {

inline QByteArray image(int size, char fill)
{
    QByteArray data(size, fill);
    for (int i = 0; i < size; i += 997)
        data[i] = char(i * 31);
    return data;
}

inline QString md5_hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

// A loopback port nobody listens on.
inline quint16 closed_port()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// Each device's first and last request over TCP (ms), of the devices that had any, in order.
inline QList<QPair<qint64, qint64>> busy_spans(devsim_harness& sim)
{
    QList<QPair<qint64, qint64>> spans;
    for (int i = 0; i < sim.count(); ++i) {
        qint64 first = -1, last = -1;
        for (const QJsonValue& r : sim.requests(i)) {
            if (r.toObject().value("udp").toBool())
                continue;
            const qint64 t = qint64(r.toObject().value("time_ms").toDouble());
            first = first < 0 ? t : std::min(first, t);
            last = std::max(last, t);
        }
        if (first >= 0)
            spans << qMakePair(first, last);
    }
    std::sort(spans.begin(), spans.end());
    return spans;
}

struct fixture
{
    bool start_devices(int count, const QJsonObject& defaults = {})
    {
        QJsonObject d = defaults;
        if (!d.contains("reboot_ms"))
            d["reboot_ms"] = 200;
        return devices.start(count, d);
    }

    QString serial(int i) { return devices.state(i)["serial"].toString(); }

    // serial -> entry, as the service file has it.
    bool start_service(const QJsonObject& fleet) { return service.start(QJsonObject { { "fleet", fleet } }); }

    // A core in the fixture's folder with one row per device, and the service's settings when it runs. An
    // interactive one has a window and a table, and needs the widget application.
    void make_core(bool offline = false, core::operation_mode mode = core::batch)
    {
        {
            QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
            // Without a service the program still talks to one (its own build check): a closed local port.
            s.setValue("Service/address", "127.0.0.1");
            s.setValue("Service/port", service.running() ? service.port() : 1);
            if (service.running()) {
                s.setValue("Service/client_id", QString::fromLatin1(service.client_id().toHex()));
                s.setValue("Service/client_key", QString::fromLatin1(service.client_key().toHex()));
            }
            if (mode == core::interactive)
                s.setValue("usage_warning_accepted", true);
        }
        c = std::make_unique<core>(QString(), dir.path());
        c->operate(mode, offline);
        // The manager starts the next flow before it announces the end of the last one: its count is what's limited.
        QObject::connect(&c->task_manager(), &tasks::manager::flow_started, [this] {
            ++started;
            peak = std::max(peak, int(c->task_manager().running_count()));
        });
        QObject::connect(&c->task_manager(), &tasks::manager::flow_ended, [this] { ++ended; });
        for (int i = 0; i < devices.count(); ++i)
            idents << add_row(devices.address(i).toString(), devices.port(i));
    }

    // A row added by hand (never discovered); its flow ident.
    QString add_row(const QString& host, quint16 port, const QString& password = QString())
    {
        const task_element element(endpoint { {}, {}, host, port, QStringLiteral("admin"), password }, device());
        c->introduce(element);
        return element.ident;
    }

    // `rows` rows all at one device that answers late, so that a command finds the first flow still at
    // its identify; false when the device doesn't start.
    bool rows_at_one_slow_device(int rows)
    {
        if (!devices.start(1, QJsonObject { { "faults", QJsonObject { { "delay_ms", 1500 } } } }))
            return false;
        for (int i = 0; i < rows; ++i)
            add_row(devices.address(0).toString(), devices.port(0));
        return true;
    }

    // Until every device takes connections again, after the reboot that ends an upgrade.
    bool devices_back(int timeout_ms = 15000)
    {
        QDeadlineTimer deadline(timeout_ms);
        for (int i = 0; i < devices.count(); ++i) {
            const auto up = [&] {
                QTcpSocket probe;
                probe.connectToHost(devices.address(i), devices.port(i));
                return probe.waitForConnected(200);
            };
            if (!QTest::qWaitFor(up, int(deadline.remainingTime())))
                return false;
        }
        return true;
    }

    // As the program's exit would; the folder stays for the next make_core.
    void end_run()
    {
        c.reset();
        idents.clear();
        ended = started = peak = 0;
    }

    // The flow's stored result; "Done" when it stored none.
    tasks::common_data result(const QString& ident) const
    {
        const auto l = c->task_manager().find(ident);
        if (!l || !l->params().contains(tasks::keys::result))
            return { QStringLiteral("Done"), true };
        return l->get(tasks::keys::result).value<tasks::common_data>();
    }
    tasks::common_data result(int i) const { return result(idents[i]); }
    std::shared_ptr<tasks::line> line(const QString& ident) const { return c->task_manager().find(ident); }
    endpoint endpoint_of(const QString& i) const { return line(i)->get(tasks::keys::endpoint).value<endpoint>(); }

    QString log_text() const
    {
        QStringList lines;
        for (const auto& e : c->history().entries({ "core", "tasks" }))
            lines << e.text;
        return lines.join('\n');
    }

    QTemporaryDir dir;
    devsim_harness devices;
    svcsim_harness service;
    std::unique_ptr<core> c;
    QStringList idents;
    int ended = 0;
    int started = 0;
    int peak = 0; // the most flows the manager had running, counted as each was admitted
};

// Every text the row's status cell takes, in order, repeats folded; interactive cores only.
inline void watch_status(fixture& f, const QString& ident, QStringList* seen)
{
    main_model* model = f.c->model();
    QObject::connect(
        model, &QAbstractItemModel::dataChanged, f.c.get(), [=](const QModelIndex& from, const QModelIndex& to) {
            const int row = model->row_of(ident);
            if (row < from.row() || row > to.row() || main_model::col_status < from.column()
                || main_model::col_status > to.column())
                return;
            const QString text = model->data(model->index(row, main_model::col_status)).toString();
            if (seen->isEmpty() || seen->constLast() != text)
                *seen << text;
        });
}

} // namespace fleet
