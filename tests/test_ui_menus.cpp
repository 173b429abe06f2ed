// The Actions and Options menus of the window, driven as a user clicks them, against simulated devices.
#include "scripting/sapi.h"
#include "tests/support/answer_modal.h"
#include "tests/support/broadcast_record.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/recording_console.h"
#include "tests/support/test_network.h"
#include "ui/main_window.h"
#include "ui/port_setup.h"

#include <QtTest>
#include <QtWidgets>

using namespace fleet;
using scripting::commands;

namespace
{

// The entry that a path of menu texts ("Change port/HTTP port") names; null when there is none.
QAction* entry(QMenu* menu, const QString& path)
{
    QAction* found = nullptr;
    for (const QString& part : path.split('/')) {
        const QList<QAction*> actions = menu ? menu->actions() : QList<QAction*>();
        const auto it = std::find_if(actions.begin(), actions.end(), [&](QAction* a) { return a->text() == part; });
        found = it == actions.end() ? nullptr : *it;
        menu = found ? found->menu() : nullptr;
    }
    return found;
}

// A core with its window among simulated devices, the options stored before it starts, and every row but
// the middle one selected.
struct desk : fixture {
    bool start(int count, const QVariantMap& options = {}, const QJsonObject& device_defaults = {})
    {
        if (count > 0 && !start_devices(count, device_defaults))
            return false;
        {
            QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
            for (auto it = options.cbegin(); it != options.cend(); ++it)
                s.setValue("Extended/menu_options/" + it.key(), it.value());
        }
        make_core(false, core::interactive);
        c->api().set_console(&console);
        if (count > 2)
            c->on_window_model_selection_changed(idents[1], false);
        return true;
    }

    QMenu* actions() const { return c->window()->menu_actions(); }
    QMenu* options() const { return c->window()->menu_options(); }
    bool click(QMenu* menu, const QString& path)
    {
        QAction* a = entry(menu, path);
        return a && (a->trigger(), true);
    }
    // The tasks composed on a line and not yet run.
    int queued(int row) const { return line(idents[row])->pending(); }

    recording_console console;
};

} // namespace

class test_ui_menus : public QObject
{
    Q_OBJECT
private slots:
    void options_are_shown_and_stored_data();
    void options_are_shown_and_stored();
    void entries_compose_tasks_for_the_selected_rows_data();
    void entries_compose_tasks_for_the_selected_rows();
    void faulty_entries_compose_nothing_data();
    void faulty_entries_compose_nothing();
    void macro_entries_data();
    void macro_entries();
    void broadcast_entries_reach_the_selected_devices_data();
    void broadcast_entries_reach_the_selected_devices();
};

void test_ui_menus::options_are_shown_and_stored_data()
{
    QTest::addColumn<QVariantMap>("stored"); // before the start
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("shown"); // checked at start
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("after"); // stored once clicked

    QTest::newRow("off by default, switched on")
        << QVariantMap {} << "Reset only network settings" << false << "reset_only_network" << QVariant(true);
    QTest::newRow("on by default, switched off")
        << QVariantMap {} << "Reboot after:/Language changed" << true << "reboot_after/language" << QVariant(false);
    QTest::newRow("the other mask") << QVariantMap {} << "Preferred subnet mask:/255.255.0.0" << false << "subnet_mask"
                                    << QVariant("255.255.0.0");
    QTest::newRow("a log tag added") << QVariantMap {} << "Log filtering:/lua" << false << "log_filter"
                                     << QVariant(QStringList { "core", "tasks", "lua" });
    QTest::newRow("a log tag removed") << QVariantMap { { "log_filter", QStringList { "core", "tasks", "sapi" } } }
                                       << "Log filtering:/tasks" << true << "log_filter"
                                       << QVariant(QStringList { "core", "sapi" });
}

void test_ui_menus::options_are_shown_and_stored()
{
    QFETCH(QVariantMap, stored);
    QFETCH(QString, path);
    QFETCH(QString, key);
    QFETCH(QVariant, after);
    desk d;
    QVERIFY(d.start(0, stored));
    QAction* a = entry(d.options(), path);
    QVERIFY2(a && a->isCheckable(), qPrintable(path));
    QTEST(a->isChecked(), "shown");
    a->trigger();
    const QVariant saved = d.c->settings().value("Extended/menu_options/" + key);
    QCOMPARE(QPair(saved.toString(), saved.toStringList()), QPair(after.toString(), after.toStringList()));
    // The core acts on it at once.
    menu_options reread;
    reread.load(d.c->settings());
    QCOMPARE(std::tie(d.c->options().autorun_tasks, d.c->options().log_filter, d.c->options().preferred_subnet),
        std::tie(reread.autorun_tasks, reread.log_filter, reread.preferred_subnet));
}

void test_ui_menus::entries_compose_tasks_for_the_selected_rows_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QVariantMap>("options");
    QTest::addColumn<QString>("composed"); // on each selected row; what the device then hears is test_core_devices'

    const QVariantMap none;
    QTest::newRow("reboot, the wait option read by nothing")
        << "Reboot" << QVariantMap { { "wait_after_reboot", true } } << "reboot";
    QTest::newRow("reset, all of it") << "Reset configuration" << none << "reset_configuration network_only=false";
    QTest::newRow("reset, the network only") << "Reset configuration" << QVariantMap { { "reset_only_network", true } }
                                             << "reset_configuration network_only=true";
    QTest::newRow("language, rebooting after")
        << "Set language to:/1. Russian" << none << "reboot | set_language language=ru/RU";
    QTest::newRow("language, no reboot asked")
        << "Set language to:/2. English" << QVariantMap { { "reboot_after/language", false } }
        << "set_language language=en/US";
    QTest::newRow("transfer policy, rebooting after")
        << "Set transfer policy/Quality" << QVariantMap { { "reboot_after/transfer_policy", true } }
        << "change_transfer_policy policy=quality | reboot";
    QTest::newRow("dhcp on") << "DHCP management/Enable" << none << "dhcp enable=true";
    QTest::newRow("configuration import")
        << "Import configuration..." << none << "import_configuration file=~/camera.cfg | reboot";
}

void test_ui_menus::entries_compose_tasks_for_the_selected_rows()
{
    QFETCH(QString, path);
    QFETCH(QVariantMap, options);
    QFETCH(QString, composed);
    desk d;
    options.insert("autorun_tasks", false);
    QVERIFY2(d.start(3, options, { { "reboot_ms", 100 } }), qPrintable(d.devices.error()));
    const QString file = d.dir.filePath("camera.cfg");
    const auto watch = answer_modal([&](QWidget* modal) {
        auto* dialog = qobject_cast<QFileDialog*>(modal);
        QVERIFY(dialog);
        // Typed in, as the folder's listing may not have been read yet.
        dialog->findChild<QLineEdit*>("fileNameEdit")->setText(file);
        dialog->QDialog::accept();
    });
    QVERIFY(d.click(d.actions(), path));
    const auto tasks_of = [&](int row) {
        QStringList out;
        for (const auto& [uuid, t] : d.line(d.idents[row])->tasks()) {
            QString text = t.name();
            for (auto it = t.params().cbegin(); it != t.params().cend(); ++it)
                text += ' ' + it.key() + '=' + it.value().toString().replace(d.dir.path(), "~");
            out << text;
        }
        out.sort();
        return out.join(" | ");
    };
    QCOMPARE(tasks_of(0), composed);
    QCOMPARE(tasks_of(2), composed);
    QCOMPARE(tasks_of(1), QString());
    QCOMPARE(d.started, 0); // without autorun they wait for a run
    if (path != "Reboot")
        return;
    d.c->on_window_run_list(true);
    QTRY_COMPARE_WITH_TIMEOUT(d.ended, 2, 20000);
    for (int i : { 0, 2 })
        QTRY_COMPARE_WITH_TIMEOUT(d.devices.state(i)["boot_count"].toInt(), 2, 5000);
    QCOMPARE(d.devices.requests(1).size(), 0);
}

void test_ui_menus::faulty_entries_compose_nothing_data()
{
    QTest::addColumn<commands>("command");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<QString>("logged"); // empty: silently nothing
    QTest::newRow("unknown port type") << commands::change_port << QVariantList { "FTP" } << "Unknown port type: FTP";
    QTest::newRow("a command of no entry") << commands::version << QVariantList {} << "Unknown action menu ident: 76";
    QTest::newRow("dhcp without its argument") << commands::set_dhcp << QVariantList {} << "";
}

void test_ui_menus::faulty_entries_compose_nothing()
{
    QFETCH(commands, command);
    QFETCH(QVariantList, args);
    QFETCH(QString, logged);
    desk d;
    QVERIFY(d.start(3));
    const int lines_before = d.log_text().count('\n');
    d.c->on_window_action_menu_executed(command, args);
    QCOMPARE(QList<int>({ d.queued(0), d.queued(1), d.queued(2) }), QList<int>({ 0, 0, 0 }));
    QCOMPARE(d.started, 0);
    QCOMPARE(QApplication::activeModalWidget(), nullptr);
    if (logged.isEmpty())
        QCOMPARE(d.log_text().count('\n'), lines_before);
    else
        QVERIFY2(d.log_text().endsWith(logged), qPrintable(d.log_text()));
}

void test_ui_menus::macro_entries_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("missing");
    QTest::newRow("assign addresses") << "Assign addresses" << QString("__seq_assign_macro")
                                      << "Variable __seq_assign_macro, containing name of the address assignment "
                                         "macro, required";
    QTest::newRow("continuous scan") << "Find devices" << QString("__continuous_scan_macro")
                                     << "Variable __continuous_scan_macro, containing name of the continuous scan "
                                        "macro, requied";
}

void test_ui_menus::macro_entries()
{
    QFETCH(QString, path);
    QFETCH(QString, variable);
    QFETCH(QString, missing);
    desk d;
    QVERIFY(d.start(3));
    QVERIFY(d.click(d.actions(), path));
    QCOMPARE(d.console.plain(), QStringList { "error: " + missing });
    QCOMPARE(QList<int>({ d.queued(0), d.queued(1), d.queued(2) }), QList<int>({ 0, 0, 0 }));
    QCOMPARE(d.started, 0);

    // A recorded macro that the variable names is played; here it asks the range of its own.
    for (const QString& line : { QStringLiteral("macro.record range"), QStringLiteral("print played from the menu"),
             QStringLiteral("macro.stop"), variable + "=range" })
        d.c->processor().execute_line(QUuid::createUuid(), line);
    QTRY_VERIFY(d.c->processor().idle() && d.c->processor().variable(variable).found);
    d.console.lines.clear();
    QVERIFY(d.click(d.actions(), path));
    QTRY_COMPARE(d.console.plain().filter("played from the menu").size(), 1);
    QVERIFY(d.console.plain().filter("error:").isEmpty());
}

void test_ui_menus::broadcast_entries_reach_the_selected_devices_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("port"); // typed into the port dialog; 0: its default taken, -1: refused
    QTest::addColumn<QJsonObject>("sent"); // members of each broadcast; empty: none goes out

    QTest::newRow("an address of the menu")
        << "Assign addresses:/192.168.1.9" << 0
        << QJsonObject { { "HostIP", wire_address(QHostAddress("192.168.1.9")) }, { "Submask", "0x00FFFFFF" } };
    QTest::newRow("the preferred mask") << "Set subnet mask" << 0 << QJsonObject { { "Submask", "0x00FFFFFF" } };
    QTest::newRow("a port typed in the dialog")
        << "Change port/HTTP port" << 8088 << QJsonObject { { "HttpPort", 8088 } };
    QTest::newRow("the default port") << "Change port/SSL port" << 0 << QJsonObject { { "SSLPort", 8443 } };
    QTest::newRow("the dialog refused") << "Change port/NETIP UDP port" << -1 << QJsonObject {};
}

void test_ui_menus::broadcast_entries_reach_the_selected_devices()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QString, path);
    QFETCH(int, port);
    QFETCH(QJsonObject, sent);
    desk d;
    const QJsonObject net { { "Submask", "0x0000FFFF" }, { "HttpPort", 80 }, { "SSLPort", 443 } };
    QVERIFY2(d.start(3, {}, { { "net_apply_ms", 50 }, { "net", net } }), qPrintable(d.devices.error()));
    // The worker learns a device's MAC, which a broadcast names, when it identifies it.
    d.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(d.ended, 2, 20000);

    const auto watch = answer_modal([&](QWidget* modal) {
        auto* dialog = qobject_cast<port_setup*>(modal);
        QVERIFY(dialog);
        if (port < 0)
            return dialog->reject();
        if (port > 0)
            dialog->findChild<QSpinBox*>("i_port")->setValue(port);
        dialog->accept();
    });
    QVERIFY(d.click(d.actions(), path));
    if (sent.isEmpty()) {
        QCOMPARE(d.started, 2);
        QCOMPARE(QList<int>({ d.queued(0), d.queued(2) }), QList<int>({ 0, 0 }));
        return;
    }
    QTRY_COMPARE_WITH_TIMEOUT(d.ended, 4, 20000);
    for (int i : { 0, 2 }) {
        QVERIFY2(d.result(i).ok, qPrintable(d.result(i).text));
        const QList<QJsonObject> broadcasts = broadcasts_for(d.devices, i);
        QCOMPARE(broadcasts.size(), 1);
        for (auto it = sent.constBegin(); it != sent.constEnd(); ++it)
            QCOMPARE(broadcasts.at(0).value(it.key()), it.value());
        QTRY_COMPARE_WITH_TIMEOUT(
            d.devices.state(i)["net"].toObject().value(sent.constBegin().key()), sent.constBegin().value(), 3000);
    }
    QVERIFY(broadcasts_for(d.devices, 1).isEmpty());
    QCOMPARE(d.devices.state(1)["net"].toObject().value("Submask").toString(), QStringLiteral("0x0000FFFF"));
}

QTEST_MAIN(test_ui_menus)
#include "test_ui_menus.moc"
