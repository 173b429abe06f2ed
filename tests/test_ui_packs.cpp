#include "ui/apply_pack.h"
#include "ui/pack_content_model.h"
#include "ui/pack_list_model.h"

#include <QtTest>
#include <QtWidgets>

using model_structures::device_list;

namespace
{

model_structures::pack_target target(const QString& serial, quint8 index, const QString& sdk = {})
{
    return { serial, index, sdk, true, true };
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

const QList<pack_list_model::record> three_packs {
    { false, "/data/site-a.ovpack", { target("sn-1", 0, "xcloud"), target("sn-2", 1), target("sn-3", 0) } },
    { true, "/data/broken.v2.ovpack", {} },
    { false, "/data/site-b.ovpack", { target("sn-9", 0), target("sn-8", 0) } },
};

} // namespace

class test_ui_packs : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { model_structures::register_meta_types(); }
    void pack_list_roles();
    void check_marks_survive_switching_packs_data();
    void check_marks_survive_switching_packs();
};

void test_ui_packs::pack_list_roles()
{
    const QString path = "/data/packs/site-a.v3.ovpack";
    pack_list_model model;
    model.set_records({ { false, path, { target("x", 0) } }, { true, path, {} } });
    QCOMPARE(model.data(model.index(0), Qt::DisplayRole).toString(), QString::fromUtf8("site-a ⚠"));
    QCOMPARE(model.data(model.index(1), Qt::DisplayRole).toString(), QStringLiteral("site-a"));
    QCOMPARE(model.data(model.index(0), Qt::ToolTipRole).toString(), path);
    QCOMPARE(model.data(model.index(1), Qt::UserRole).toString(), path);
    QVERIFY(!model.data(model.index(2), Qt::DisplayRole).isValid());
}

void test_ui_packs::check_marks_survive_switching_packs_data()
{
    QTest::addColumn<bool>("by_click"); // current row moved, or the view's activated signal
    QTest::newRow("switching by activation") << false;
    QTest::newRow("switching by moving the current row") << true;
}

// Marks stay with their pack while another is shown; accepting emits the checked targets of the one shown.
void test_ui_packs::check_marks_survive_switching_packs()
{
    QFETCH(bool, by_click);
    apply_pack dialog;
    dialog.set_packs(three_packs);
    auto* packs_view = dialog.findChild<QListView*>("l_packs");
    auto go_to = [&](int row) {
        const QModelIndex index = dialog.packs()->index(row);
        if (by_click)
            packs_view->setCurrentIndex(index);
        else
            emit packs_view->activated(index);
    };
    auto uncheck = [&](int row) { dialog.content()->setData(dialog.content()->index(row), false, Qt::CheckStateRole); };
    auto* ok = dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok);
    QCOMPARE(packs_view->currentIndex().row(), 0);
    QCOMPARE(dialog.findChild<QListView*>("l_devices")->model()->rowCount(), 3);

    uncheck(1);
    go_to(2);
    QCOMPARE(dialog.current_path(), QStringLiteral("/data/site-b.ovpack"));
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-9", "sn-8" }));
    uncheck(0);
    go_to(1); // the broken pack has no targets
    QCOMPARE(dialog.content()->rowCount(), 0);
    go_to(2);
    QCOMPARE(checked_serials(dialog.current_targets()), QStringList { "sn-8" });
    QCOMPARE(dialog.current_targets().size(), 2);
    go_to(0);
    go_to(0); // again: nothing is reloaded over the marks

    QSignalSpy accepted(&dialog, &apply_pack::pack_accepted);
    QSignalSpy finished(&dialog, &QDialog::accepted);
    ok->click();
    QCOMPARE(finished.count(), 1);
    QCOMPARE(accepted.count(), 1);
    const auto targets = accepted.at(0).at(0).value<device_list>();
    QCOMPARE(targets.size(), 2);
    QCOMPARE(checked_serials(targets), (QStringList { "sn-1", "sn-3" }));
    QCOMPARE(targets.at(0).sdk_type, QStringLiteral("xcloud"));

    // A new offer forgets the old marks; none checked gives an empty list, for core to warn about.
    dialog.set_packs(three_packs);
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-1", "sn-2", "sn-3" }));
    for (int row = 0; row < 3; ++row)
        uncheck(row);
    ok->click();
    QCOMPARE(accepted.count(), 2);
    QVERIFY(accepted.at(1).at(0).value<device_list>().isEmpty());
}

QTEST_MAIN(test_ui_packs)
#include "test_ui_packs.moc"
