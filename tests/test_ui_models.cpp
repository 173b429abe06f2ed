// The table's model and its filter, the problems list, and the models of the dialog that applies a firmware pack.
#include <QSignalSpy>
#include <QtTest>
#include <QtWidgets>

#include <stdexcept>

#include "ui/apply_pack.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/pack_content_model.h"
#include "ui/pack_list_model.h"
#include "ui/problems.h"

using model_structures::device_list;

namespace
{

// Rows id-0, id-1, ... at admin@10.0.0.N.
void fill(main_model& model, int count)
{
    for (int i = 0; i < count; ++i)
        model.add_record(main_model::make_record("id-" + QString::number(i), "admin@10.0.0." + QString::number(i)));
}

// The one cell a dataChanged signal names, or an invalid index when it names a range.
QModelIndex cell_of(const QList<QVariant>& signal)
{
    const auto top_left = signal.at(0).value<QModelIndex>();
    return top_left == signal.at(1).value<QModelIndex>() ? top_left : QModelIndex();
}

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

class test_ui_models : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { model_structures::register_meta_types(); }
    void data_and_flags_data();
    void data_and_flags();
    void sorting_and_row_filter_data();
    void sorting_and_row_filter();
    void filter_follows_status_and_keeps_check_marks();
    void update_touches_one_cell_data();
    void update_touches_one_cell();
    void set_data_takes_check_marks_only_data();
    void set_data_takes_check_marks_only();
    void removal_bookkeeping();
    void status_colors();
    void problems_number_rows_in_arrival_order();
    void pack_list_roles();
    void check_marks_survive_switching_packs_data();
    void check_marks_survive_switching_packs();
};

void test_ui_models::data_and_flags_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("role"); // -1: flags; -2: flags while read only
    QTest::addColumn<QVariant>("expected");
    QTest::newRow("display of column 0 is the address") << 0 << 0 << QVariant("admin@10.0.0.1");
    QTest::newRow("display of column 4 is the status") << 4 << 0 << QVariant("Added");
    QTest::newRow("check state only in column 0") << 0 << 10 << QVariant(2);
    QTest::newRow("no check state in column 1") << 1 << 10 << QVariant();
    QTest::newRow("background only in column 4") << 4 << 8 << QVariant(QColor(0, 0, 0, 0));
    QTest::newRow("no background in column 0") << 0 << 8 << QVariant();
    QTest::newRow("ident in every column") << 3 << 256 << QVariant("id-1");
    QTest::newRow("column 0 is checkable") << 0 << -1 << QVariant(49);
    QTest::newRow("read only column 0 is disabled but keeps its box") << 0 << -2 << QVariant(17);
    QTest::newRow("other columns are plain") << 2 << -1 << QVariant(33);
    QTest::newRow("read only leaves other columns alone") << 4 << -2 << QVariant(33);
}

void test_ui_models::data_and_flags()
{
    QFETCH(int, column);
    QFETCH(int, role);
    main_model model;
    fill(model, 2);
    model.set_selected(QStringLiteral("id-0"), false);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    if (role == -2)
        model.set_read_only(true);
    const QModelIndex index = model.index(1, column);
    QTEST(role < 0 ? QVariant(int(model.flags(index))) : model.data(index, role), "expected");
    QVERIFY(!model.data(QModelIndex(), role).isValid());
    // Read only repaints column 0 of every row, and the check marks stay.
    QCOMPARE(changed.count(), role == -2 ? 2 : 0);
    for (int row = 0; row < changed.count(); ++row)
        QCOMPARE(cell_of(changed.at(row)), model.index(row, 0));
    QCOMPARE(model.data(model.index(0, 0), Qt::CheckStateRole).toInt(), 0);
    QCOMPARE(model.data(model.index(1, 0), Qt::CheckStateRole).toInt(), 2);
    model.set_read_only(false);
    QCOMPARE(int(model.flags(model.index(0, 0))), 49);
}

void test_ui_models::update_touches_one_cell_data()
{
    QTest::addColumn<QString>("update");
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("display goes to column 0") << "display" << 0 << 0 << QVariant("Uploading: 7%");
    QTest::newRow("status goes to column 4") << "status" << 4 << 0 << QVariant("Uploading: 7%");
    QTest::newRow("colour goes to column 4")
        << "colour" << 4 << int(Qt::BackgroundRole) << QVariant(QColor(255, 225, 220));
    QTest::newRow("selection goes to column 0") << "selection" << 0 << int(Qt::CheckStateRole) << QVariant(0);
}

// An unknown ident changes nothing; a known one repaints its own cell and no other.
void test_ui_models::update_touches_one_cell()
{
    QFETCH(QString, update);
    QFETCH(int, column);
    QFETCH(int, role);
    QFETCH(QVariant, value);
    main_model model;
    fill(model, 3);
    const auto apply = [&](main_model& m, const QString& id) {
        if (update == "display")
            m.update_display(id, "Uploading: 7%");
        else if (update == "status")
            m.update_status(id, "Uploading: 7%");
        else if (update == "colour")
            m.update_color(id, main_model::status_color(0));
        else
            m.set_selected(id, false);
    };
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    apply(model, QStringLiteral("no-such-ident"));
    QCOMPARE(changed.count(), 0);
    apply(model, QStringLiteral("id-1"));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(cell_of(changed.at(0)), model.index(1, column));
    QCOMPARE(model.data(model.index(1, column), role), value);
    QVERIFY(model.data(model.index(0, column), role) != value);
    QVERIFY(model.data(model.index(2, column), role) != value);
    // An upload repeats its percentage chunk after chunk: an unchanged status cell isn't repainted.
    if (column == main_model::col_status) {
        apply(model, QStringLiteral("id-1"));
        QCOMPARE(changed.count(), 1);
    }
}

void test_ui_models::set_data_takes_check_marks_only_data()
{
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("selected"); // -1: refused
    QTest::newRow("the view's checked state sets") << 10 << QVariant(int(Qt::Checked)) << 1;
    QTest::newRow("a bool false clears") << 10 << QVariant(false) << 0;
    QTest::newRow("the edit role is refused") << 2 << QVariant("edited") << -1;
}

// A check mark from the view is reported as a selection change, not repainted as data.
void test_ui_models::set_data_takes_check_marks_only()
{
    QFETCH(int, role);
    QFETCH(QVariant, value);
    QFETCH(int, selected);
    main_model model;
    fill(model, 2);
    model.set_selected(QStringLiteral("id-1"), selected != 1);
    QSignalSpy selection(&model, &main_model::selection_changed);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QCOMPARE(model.setData(model.index(1, 0), value, role), selected >= 0);
    QCOMPARE(selection.count(), selected >= 0 ? 1 : 0);
    if (selected >= 0)
        QCOMPARE(selection.at(0), (QList<QVariant> { "id-1", selected == 1 }));
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.data(model.index(1, 0), Qt::CheckStateRole).toInt(), selected ? 2 : 0);
    QCOMPARE(model.data(model.index(1, 0)).toString(), QStringLiteral("admin@10.0.0.1"));
}

void test_ui_models::removal_bookkeeping()
{
    main_model model;
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.clear(); // on empty: no signal at all
    fill(model, 4);
    model.remove_record(QStringLiteral("no-such-ident"));
    QCOMPARE(removed.count(), 0);
    // Later rows move up, and the index by ident follows them.
    model.remove_record(QStringLiteral("id-1"));
    QCOMPARE(removed.takeFirst().mid(1), (QList<QVariant> { 1, 1 }));
    QCOMPARE(model.row_of(QStringLiteral("id-2")), 1);
    QCOMPARE(model.row_of(QStringLiteral("id-1")), -1);
    QCOMPARE(model.at(2).ident, QStringLiteral("id-3"));
    QVERIFY_EXCEPTION_THROWN(model.at(3), std::out_of_range);
    // Clearing removes all rows in one signal.
    model.clear();
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).mid(1), (QList<QVariant> { 0, 2 }));
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.row_of(QStringLiteral("id-0")), -1);
    QCOMPARE(reset.count(), 0);
}

void test_ui_models::status_colors()
{
    QCOMPARE(main_model::status_color(0), QColor(255, 225, 220, 255)); // failure
    QCOMPARE(main_model::status_color(1), QColor(220, 255, 225, 255)); // success
    QCOMPARE(main_model::status_color(2), QColor(255, 255, 225, 255)); // progress
    QVERIFY(!main_model::status_color(3).isValid()); // anything else clears
    QVERIFY(!main_model::status_color(-1).isValid());
}

void test_ui_models::problems_number_rows_in_arrival_order()
{
    problems model;
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    model.append("10:00:01", "check_updates", "admin@127.0.0.2", "S1", "Failed to access the service");
    model.append("10:00:02", "confirm", "admin@127.0.0.3", "S2", "Remote service error");
    model.append("10:00:03", "flash", "cam", "", "timeout");
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(model.columnCount(), 5);
    const QStringList second { "10:00:02", "confirm", "admin@127.0.0.3", "S2", "Remote service error" };
    for (int column = 0; column < 5; ++column) {
        QCOMPARE(model.data(model.index(1, column)).toString(), second[column]);
        for (int row = 0; row < 3; ++row)
            QCOMPARE(model.data(model.index(row, column), 256).toUInt(), quint32(row + 1));
    }
    QCOMPARE(inserted.count(), 3);
    for (int row = 0; row < 3; ++row)
        QCOMPARE(inserted.at(row).at(1).toInt(), row);
}

void test_ui_models::sorting_and_row_filter_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("rows");
    QTest::addColumn<QStringList>("order");
    // Rows: a 10.0.0.10 done, b 10.0.0.9 failed "Z", c 10.0.0.2 running, d 10.0.0.1 failed "A", e 10.0.0.3 added.
    QTest::newRow("insertion order without sorting") << -1 << int(main_model_filter::all_rows)
                                                     << QStringList { "a", "b", "c", "d", "e" };
    QTest::newRow("addresses by number, not by text") << int(main_model::col_display) << int(main_model_filter::all_rows)
                                                      << QStringList { "d", "c", "e", "b", "a" };
    QTest::newRow("status: failures first, together, then running, done, untouched")
        << int(main_model::col_status) << int(main_model_filter::all_rows) << QStringList { "d", "b", "c", "a", "e" };
    QTest::newRow("failures only") << -1 << int(main_model_filter::failed_rows) << QStringList { "b", "d" };
    QTest::newRow("running only") << -1 << int(main_model_filter::running_rows) << QStringList { "c" };
    QTest::newRow("failures sorted by address") << int(main_model::col_display) << int(main_model_filter::failed_rows)
                                                << QStringList { "d", "b" };
}

// The view's order and rows through the proxy, from the texts and colours core gives the model.
void test_ui_models::sorting_and_row_filter()
{
    QFETCH(int, column);
    QFETCH(int, rows);
    main_model model;
    const struct { const char* ident; const char* address; const char* status; int mode; } records[] = {
        { "a", "10.0.0.10", "Done upgrading", 1 },
        { "b", "10.0.0.9", "Z failure", 0 },
        { "c", "10.0.0.2", "Uploading: 5%", 2 },
        { "d", "10.0.0.1", "A failure", 0 },
        { "e", "10.0.0.3", "Added", 3 },
    };
    for (const auto& r : records) {
        model.add_record(main_model::make_record(r.ident, r.address));
        model.update_status(r.ident, r.status);
        model.update_color(r.ident, main_model::status_color(r.mode));
    }
    main_model_filter filter;
    filter.setSourceModel(&model);
    filter.set_row_filter(main_model_filter::row_filter(rows));
    filter.sort(column, Qt::AscendingOrder);
    QStringList seen;
    for (int row = 0; row < filter.rowCount(); ++row)
        seen << filter.index(row, 0).data(main_model::ident_role).toString();
    QTEST(seen, "order");
}

// A row joins and leaves the failure filter as its status changes; ticks set through the proxy land on the
// right row and survive sorting and filtering.
void test_ui_models::filter_follows_status_and_keeps_check_marks()
{
    main_model model;
    fill(model, 4);
    main_model_filter filter;
    filter.setSourceModel(&model);
    filter.sort(main_model::col_display, Qt::DescendingOrder);
    QCOMPARE(filter.index(0, 0).data(main_model::ident_role).toString(), QStringLiteral("id-3"));
    QVERIFY(filter.setData(filter.index(0, 0), false, Qt::CheckStateRole));
    QCOMPARE(model.at(3).selected, false);

    filter.set_row_filter(main_model_filter::failed_rows);
    QCOMPARE(filter.rowCount(), 0);
    model.update_color("id-1", main_model::status_color(0));
    model.update_color("id-3", main_model::status_color(0));
    QCOMPARE(filter.rowCount(), 2);
    QCOMPARE(filter.index(0, 0).data(main_model::ident_role).toString(), QStringLiteral("id-3"));
    QCOMPARE(filter.index(0, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
    QCOMPARE(filter.index(1, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    model.update_color("id-1", main_model::status_color(2)); // run again
    QCOMPARE(filter.rowCount(), 1);

    filter.set_row_filter(main_model_filter::all_rows);
    QCOMPARE(filter.rowCount(), 4);
    for (int row = 0; row < 4; ++row)
        QCOMPARE(model.at(row).selected, row != 3);
}

void test_ui_models::pack_list_roles()
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

void test_ui_models::check_marks_survive_switching_packs_data()
{
    QTest::addColumn<bool>("by_click"); // current row moved, or the view's activated signal
    QTest::newRow("switching by activation") << false;
    QTest::newRow("switching by moving the current row") << true;
}

// Marks stay with their pack while another is shown; accepting emits the checked targets of the one shown.
void test_ui_models::check_marks_survive_switching_packs()
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

QTEST_MAIN(test_ui_models)
#include "test_ui_models.moc"
