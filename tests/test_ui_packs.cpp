#include "ui/apply_pack.h"
#include "ui/pack_content_model.h"
#include "ui/pack_list_model.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListView>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

using model_structures::device_list;
using model_structures::pack_target;

namespace
{

pack_target target(const QString& serial, quint8 index, const QString& sdk = {}, bool checked = true)
{
    pack_target t;
    t.serial = serial;
    t.index = index;
    t.sdk_type = sdk;
    t.present = true;
    t.checked = checked;
    return t;
}

QStringList checked_serials(const device_list& list)
{
    QStringList out;
    for (const auto& t : list) {
        if (t.checked)
            out << t.serial;
    }
    return out;
}

const QList<pack_list_model::record> two_packs {
    { false, "/data/site-a.ovpack", { target("sn-1", 0, "xcloud"), target("sn-2", 1), target("sn-3", 0) } },
    { true, "/data/broken.v2.ovpack", {} },
    { false, "/data/site-b.ovpack", { target("sn-9", 0), target("sn-8", 0) } },
};

} // namespace

class test_ui_packs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void pack_list_roles_data();
    void pack_list_roles();
    void pack_content_roles_data();
    void pack_content_roles();
    void pack_content_takes_check_marks_only_data();
    void pack_content_takes_check_marks_only();

    void dialog_shows_the_first_pack();
    void check_marks_survive_switching_packs_data();
    void check_marks_survive_switching_packs();
    void accepting_emits_the_checked_targets_data();
    void accepting_emits_the_checked_targets();
    void new_offer_forgets_old_marks();
};

void test_ui_packs::initTestCase()
{
    model_structures::register_meta_types();
}

void test_ui_packs::pack_list_roles_data()
{
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("expected");
    const QString path = "/data/packs/site-a.v3.ovpack";
    QTest::newRow("display: base name, sign when ok is false") << false << 0 << QVariant("site-a ⚠");
    QTest::newRow("display: base name alone when ok") << true << 0 << QVariant("site-a");
    QTest::newRow("tool tip: the path") << true << 3 << QVariant(path);
    QTest::newRow("user role: the path") << false << 256 << QVariant(path);
    QTest::newRow("edit role: nothing") << false << 2 << QVariant();
    QTest::newRow("check state: nothing") << false << 10 << QVariant();
}

void test_ui_packs::pack_list_roles()
{
    QFETCH(bool, ok);
    QFETCH(int, role);
    QFETCH(QVariant, expected);
    pack_list_model model;
    model.set_records({ { ok, "/data/packs/site-a.v3.ovpack", { target("x", 0) } } });
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(model.data(model.index(0), role), expected);
    QVERIFY(!model.data(model.index(0), 1).value<QIcon>().pixmap(16, 16).isNull());
    QVERIFY(!model.data(model.index(1), 0).isValid());
}

void test_ui_packs::pack_content_roles_data()
{
    QTest::addColumn<QString>("sdk");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("expected");
    QTest::newRow("display: upper-case serial alone without SDK type") << "" << true << 0 << QVariant("AB12CD");
    QTest::newRow("display: SDK type in brackets") << "xcloud" << true << 0 << QVariant("AB12CD [xcloud]");
    QTest::newRow("check state 2 when checked") << "" << true << 10 << QVariant(2);
    QTest::newRow("check state 0 when not") << "xnet" << false << 10 << QVariant(0);
    QTest::newRow("user role: serial as stored") << "xnet" << true << 256 << QVariant("ab12cd");
    QTest::newRow("tool tip: nothing") << "" << true << 3 << QVariant();
}

void test_ui_packs::pack_content_roles()
{
    QFETCH(QString, sdk);
    QFETCH(bool, checked);
    QFETCH(int, role);
    QFETCH(QVariant, expected);
    pack_content_model model;
    model.set_list({ target("ab12cd", 3, sdk, checked) });
    const QVariant value = model.data(model.index(0), role);
    QCOMPARE(value.isValid(), expected.isValid());
    if (expected.isValid())
        QCOMPARE(role == 10 ? QVariant(value.toInt()) : value, expected);
    QVERIFY(model.flags(model.index(0)) & Qt::ItemIsUserCheckable);
    QVERIFY(!model.data(model.index(0), 1).value<QIcon>().pixmap(16, 16).isNull());
}

void test_ui_packs::pack_content_takes_check_marks_only_data()
{
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<bool>("checked");
    QTest::newRow("Qt::Unchecked clears the mark") << 10 << QVariant(int(Qt::Unchecked)) << true << false;
    QTest::newRow("bool false clears the mark") << 10 << QVariant(false) << true << false;
    QTest::newRow("Qt::Checked keeps it") << 10 << QVariant(int(Qt::Checked)) << true << true;
    QTest::newRow("display role is refused") << 0 << QVariant("renamed") << false << true;
    QTest::newRow("user role is refused") << 256 << QVariant("other") << false << true;
}

void test_ui_packs::pack_content_takes_check_marks_only()
{
    QFETCH(int, role);
    QFETCH(QVariant, value);
    QFETCH(bool, taken);
    QFETCH(bool, checked);
    pack_content_model model;
    model.set_list({ target("a", 0), target("b", 1) });
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QCOMPARE(model.setData(model.index(1), value, role), taken);
    QCOMPARE(changed.count(), taken ? 1 : 0);
    QCOMPARE(model.list().at(1).checked, checked);
    QCOMPARE(model.list().at(1).serial, QStringLiteral("b"));
    QVERIFY(model.list().at(0).checked);
    QVERIFY(!model.setData(model.index(2), false, 10));
}

void test_ui_packs::dialog_shows_the_first_pack()
{
    apply_pack dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Applying firmware packages"));
    QStringList heads;
    for (const QLabel* label : dialog.findChildren<QLabel*>())
        heads << label->text();
    QVERIFY(heads.contains("Firmware packages:"));
    QVERIFY(heads.contains("Target devices:"));
    auto* packs_view = dialog.findChild<QListView*>("l_packs");
    auto* devices_view = dialog.findChild<QListView*>("l_devices");
    QVERIFY(packs_view && devices_view && dialog.findChild<QDialogButtonBox*>("buttonBox"));

    dialog.set_packs(two_packs);
    QCOMPARE(packs_view->currentIndex().row(), 0);
    QCOMPARE(dialog.current_path(), QStringLiteral("/data/site-a.ovpack"));
    QCOMPARE(devices_view->model()->rowCount(), 3);
    QCOMPARE(
        devices_view->model()->data(devices_view->model()->index(0, 0)).toString(), QStringLiteral("SN-1 [xcloud]"));
}

void test_ui_packs::check_marks_survive_switching_packs_data()
{
    QTest::addColumn<bool>("by_click"); // current row moved, or the view's activated signal
    QTest::newRow("switching by activation") << false;
    QTest::newRow("switching by moving the current row") << true;
}

void test_ui_packs::check_marks_survive_switching_packs()
{
    QFETCH(bool, by_click);
    apply_pack dialog;
    dialog.set_packs(two_packs);
    auto* packs_view = dialog.findChild<QListView*>("l_packs");
    auto go_to = [&](int row) {
        const QModelIndex index = dialog.packs()->index(row);
        if (by_click)
            packs_view->setCurrentIndex(index);
        else
            emit packs_view->activated(index);
    };

    dialog.content()->setData(dialog.content()->index(1), false, Qt::CheckStateRole);
    go_to(2);
    QCOMPARE(dialog.current_path(), QStringLiteral("/data/site-b.ovpack"));
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-9", "sn-8" }));
    dialog.content()->setData(dialog.content()->index(0), false, Qt::CheckStateRole);

    go_to(1); // the broken pack has no targets
    QCOMPARE(dialog.content()->rowCount(), 0);
    go_to(0);
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-1", "sn-3" }));
    go_to(0); // again: nothing is reloaded over the marks
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-1", "sn-3" }));
    go_to(2);
    QCOMPARE(checked_serials(dialog.current_targets()), QStringList { "sn-8" });
    QCOMPARE(dialog.current_targets().size(), 2);
}

void test_ui_packs::accepting_emits_the_checked_targets_data()
{
    QTest::addColumn<QList<int>>("unchecked");
    QTest::addColumn<QStringList>("emitted");
    QTest::newRow("all checked: every target") << QList<int> {} << QStringList { "sn-1", "sn-2", "sn-3" };
    QTest::newRow("unchecked ones are left out") << QList<int> { 1 } << QStringList { "sn-1", "sn-3" };
    QTest::newRow("none checked: an empty list, so core warns") << QList<int> { 0, 1, 2 } << QStringList {};
}

void test_ui_packs::accepting_emits_the_checked_targets()
{
    QFETCH(QList<int>, unchecked);
    QFETCH(QStringList, emitted);
    apply_pack dialog;
    dialog.set_packs(two_packs);
    for (int row : unchecked)
        dialog.content()->setData(dialog.content()->index(row), int(Qt::Unchecked), Qt::CheckStateRole);
    QSignalSpy accepted(&dialog, &apply_pack::pack_accepted);
    QSignalSpy finished(&dialog, &QDialog::accepted);

    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(accepted.count(), 1);
    QCOMPARE(finished.count(), 1);
    const auto targets = accepted.at(0).at(0).value<device_list>();
    QStringList serials;
    for (const auto& t : targets)
        serials << t.serial;
    QCOMPARE(serials, emitted);
    if (!targets.isEmpty())
        QCOMPARE(targets.at(0).sdk_type, QStringLiteral("xcloud"));
    QCOMPARE(dialog.current_path(), QStringLiteral("/data/site-a.ovpack"));
}

void test_ui_packs::new_offer_forgets_old_marks()
{
    apply_pack dialog;
    dialog.set_packs(two_packs);
    dialog.content()->setData(dialog.content()->index(0), false, Qt::CheckStateRole);
    dialog.set_packs(two_packs);
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-1", "sn-2", "sn-3" }));
    dialog.set_packs({});
    QCOMPARE(dialog.content()->rowCount(), 0);
    QCOMPARE(dialog.current_path(), QString());
}

QTEST_MAIN(test_ui_packs)
#include "test_ui_packs.moc"
