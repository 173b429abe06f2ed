#pragma once

// Simulated devices and a simulated update service with a core in batch mode between
// them, for tests of the update flow, the cache and packs. Header-only: it needs the
// program's core, which the shared support library doesn't link.
#include "app/core.h"
#include "tests/support/devsim_harness.h"
#include "tests/support/svcsim_harness.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QTcpSocket>
#include <QTest>
#include <QSettings>
#include <QTemporaryDir>

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

// Simulated devices and service, and a core in batch mode between them.
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

    // fleet: serial -> entry, as the service file has it.
    bool start_service(const QJsonObject& fleet)
    {
        return service.start(QJsonObject { { "fleet", fleet } });
    }

    // A core in the fixture's folder (its settings, cache and log) with one row per device.
    // A client id other than the service's makes the packs and cache of another identity.
    void make_core(bool offline = false, const QByteArray& client_id = {})
    {
        {
            QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
            s.setValue("Service/client_id", QString::fromLatin1((client_id.isEmpty() ? service.client_id() : client_id).toHex()));
            s.setValue("Service/client_key", QString::fromLatin1(service.client_key().toHex()));
            s.setValue("Service/address", "127.0.0.1");
            s.setValue("Service/port", service.port());
        }
        c = std::make_unique<core>(QString(), dir.path());
        c->operate(core::batch, offline);
        QObject::connect(&c->task_manager(), &tasks::manager::flow_ended, [this] { ++ended; });
        for (int i = 0; i < devices.count(); ++i) {
            endpoint ep;
            ep.host = devices.address(i).toString();
            ep.port = devices.port(i);
            task_element element(ep, device());
            c->introduce(element);
            idents << element.ident;
        }
    }

    // Waits until every device takes connections again, after the reboot that ends an upgrade.
    bool devices_back(int timeout_ms = 15000)
    {
        QDeadlineTimer deadline(timeout_ms);
        for (int i = 0; i < devices.count(); ++i) {
            for (;;) {
                QTcpSocket probe;
                probe.connectToHost(devices.address(i), devices.port(i));
                if (probe.waitForConnected(200))
                    break;
                if (deadline.hasExpired())
                    return false;
                QTest::qWait(50);
            }
        }
        return true;
    }

    // Ends the run, as the program's exit would; the folder stays for the next make_core.
    void end_run()
    {
        c.reset();
        idents.clear();
        ended = 0;
    }

    tasks::common_data result(int i)
    {
        return c->task_manager().find(idents[i])->get(tasks::keys::result).value<tasks::common_data>();
    }

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
};

} // namespace fleet
