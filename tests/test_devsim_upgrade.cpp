#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QCryptographicHash>
#include <QtTest>

class test_devsim_upgrade : public QObject
{
    Q_OBJECT
private slots:
    void upload_data();
    void upload();
};

void test_devsim_upgrade::upload_data()
{
    QTest::addColumn<QJsonObject>("faults");
    // Ret of the start | of the chunks after so many answers | of the end of file | progress | connection
    QTest::addColumn<QString>("transcript");
    QTest::newRow("good upload") << QJsonObject {} << "100 | 100 after 4 | 100 | 0 | 25 | 50 | 75 | 100 | 515 | closed";
    QTest::newRow("chunk 1 answered 514")
        << QJsonObject { { "chunk_ret", QJsonObject { { "1", 514 } } } } << "100 | 514 after 2 | open";
    QTest::newRow("dropped at 50%") << QJsonObject { { "progress_drop_at", 50 } }
                                    << "100 | 100 after 4 | 100 | 0 | 25 | closed";
}

void test_devsim_upgrade::upload()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QString, transcript);
    constexpr int chunk_size = 32768;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 300 }, { "upgrade_step_ms", 50 }, { "faults", faults } }),
        qPrintable(sim.error()));
    const QString old_version = sim.state(0).value("software_version").toString();
    QByteArray image(3 * chunk_size + 7, Qt::Uninitialized);
    for (int i = 0; i < image.size(); ++i)
        image[i] = char((uint(i) * 131) ^ (uint(i) >> 9));
    const QString md5 = QCryptographicHash::hash(image, QCryptographicHash::Md5).toHex();

    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    const QByteArray start = netip_wire::json({ { "Name", "OPSystemUpgrade" },
        { "OPSystemUpgrade", QJsonObject { { "Action", "Start" }, { "Type", "System" } } } });
    netip_reply r;
    QVERIFY(w.exchange(1520, start, r, session));
    QStringList seen { QString::number(r.ret()) };
    int n = 0, ret = 100;
    for (; ret == 100 && n * chunk_size < image.size(); ++n) {
        const QByteArray part = image.mid(n * chunk_size, chunk_size);
        w.send_frame(netip_wire::header(1522, quint32(part.size()), session, 0xFF, 1, 0, quint32(n)) + part);
        ret = w.read(r, 2000) && r.id == 1523 && r.sequence == quint32(n) ? r.ret() : -1;
    }
    seen << QStringLiteral("%1 after %2").arg(ret).arg(n);
    if (ret == 100) {
        w.send_frame(netip_wire::header(1522, 0, session, 0xFF, 1, 0, quint32(n), 1));
        seen << (w.read(r, 2000) && r.id == 1523 ? QString::number(r.ret()) : QStringLiteral("none"));
        while (seen.last() != "515" && w.read(r, 600))
            seen << (r.id == 1524 ? QString::number(r.ret()) : QStringLiteral("id %1").arg(r.id));
    }
    const bool upgraded = seen.last() == "515";
    QCOMPARE(seen.join(" | ") + (w.closed_within(300) ? " | closed" : " | open"), transcript);

    // The image is hashed as it arrives; only 515 reboots the device, into a version named by the hash.
    QTest::qWait(300);
    QTRY_COMPARE_WITH_TIMEOUT(sim.state(0).value("boot_count").toInt(), upgraded ? 2 : 1, 3000);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrades").toInt(), int(upgraded));
    QCOMPARE(state.value("software_version").toString(), upgraded ? "V" + md5.left(8) : old_version);
    if (ret == 100)
        QCOMPARE(state.value("upgrade_md5").toString(), md5);
    if (upgraded) {
        netip_wire back;
        QVERIFY(back.open(sim.address(0), sim.port(0)));
        const quint32 again = back.login();
        QVERIFY(back.exchange(1020, netip_wire::json({ { "Name", "SystemInfo" } }), r, again));
        QCOMPARE(r.body.value("SystemInfo").toObject().value("SoftWareVersion").toString(), "V" + md5.left(8));
    }
}

QTEST_GUILESS_MAIN(test_devsim_upgrade)
#include "test_devsim_upgrade.moc"
