#include <QSignalSpy>
#include <QtTest>

#include <functional>
#include <stdexcept>

#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/problems.h"

namespace
{

// Rows id-0, id-1, ... at admin@10.0.0.N, with serial SER-id-N and a MAC ending in N.
void fill(main_model& model, int count)
{
    for (int i = 0; i < count; ++i) {
        main_model::record r
            = main_model::make_record(QStringLiteral("id-%1").arg(i), QStringLiteral("admin@10.0.0.%1").arg(i));
        r.serial = QStringLiteral("SER-id-%1").arg(i);
        r.mac = QStringLiteral("00:11:22:33:44:0%1").arg(i);
        model.add_record(r);
    }
}

using update = std::function<void(main_model&, const QString&)>;

// The one cell a dataChanged signal names, or an invalid index when it names a range.
QModelIndex cell_of(const QList<QVariant>& signal)
{
    const auto top_left = signal.at(0).value<QModelIndex>();
    return top_left == signal.at(1).value<QModelIndex>() ? top_left : QModelIndex();
}

} // namespace

Q_DECLARE_METATYPE(update)

class test_ui_models : public QObject
{
    Q_OBJECT
private slots:
    void data_and_flags_data();
    void data_and_flags();
    void update_touches_one_cell_data();
    void update_touches_one_cell();
    void set_data_takes_check_marks_only_data();
    void set_data_takes_check_marks_only();
    void removal_bookkeeping();
    void status_colors();
    void filter_hides_columns_data();
    void filter_hides_columns();
    void problems_number_rows_in_arrival_order();
};

void test_ui_models::data_and_flags_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("role"); // -1: flags; -2: flags while read only
    QTest::addColumn<QVariant>("expected");
    QTest::newRow("display of column 0 is the address") << 0 << 0 << QVariant("admin@10.0.0.1");
    QTest::newRow("display of column 1 is the serial") << 1 << 0 << QVariant("SER-id-1");
    QTest::newRow("display of column 2 is the mac") << 2 << 0 << QVariant("00:11:22:33:44:01");
    QTest::newRow("display of column 3 is the summary") << 3 << 0 << QVariant("No information");
    QTest::newRow("display of column 4 is the status") << 4 << 0 << QVariant("Added");
    QTest::newRow("check state only in column 0") << 0 << 10 << QVariant(2);
    QTest::newRow("no check state in column 1") << 1 << 10 << QVariant();
    QTest::newRow("background only in column 4") << 4 << 8 << QVariant(QColor(0, 0, 0, 0));
    QTest::newRow("no background in column 0") << 0 << 8 << QVariant();
    QTest::newRow("no decoration in column 3") << 3 << 1 << QVariant();
    QTest::newRow("ident in column 0") << 0 << 256 << QVariant("id-1");
    QTest::newRow("ident in column 3") << 3 << 256 << QVariant("id-1");
    QTest::newRow("tool tip is not offered") << 0 << 3 << QVariant();
    QTest::newRow("column 0 is checkable") << 0 << -1 << QVariant(49);
    QTest::newRow("read only column 0 is disabled but keeps its box") << 0 << -2 << QVariant(17);
    QTest::newRow("other columns are plain") << 2 << -1 << QVariant(33);
    QTest::newRow("read only leaves other columns alone") << 4 << -2 << QVariant(33);
}

void test_ui_models::data_and_flags()
{
    QFETCH(int, column);
    QFETCH(int, role);
    QFETCH(QVariant, expected);
    main_model model;
    fill(model, 2);
    model.set_selected(QStringLiteral("id-0"), false);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    if (role == -2)
        model.set_read_only(true);
    const QModelIndex index = model.index(1, column);
    QCOMPARE(role < 0 ? QVariant(int(model.flags(index))) : model.data(index, role), expected);
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
    QTest::addColumn<update>("apply");
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("value");
    auto text = [](void (main_model::*set)(const QString&, const QString&)) {
        return update([set](main_model& m, const QString& id) { (m.*set)(id, QStringLiteral("Uploading: 7%")); });
    };
    const QVariant uploading("Uploading: 7%");
    QTest::newRow("display goes to column 0") << text(&main_model::update_display) << 0 << 0 << uploading;
    QTest::newRow("serial goes to column 1") << text(&main_model::update_serial) << 1 << 0 << uploading;
    QTest::newRow("mac goes to column 2") << text(&main_model::update_mac) << 2 << 0 << uploading;
    QTest::newRow("summary goes to column 3") << text(&main_model::update_summary) << 3 << 0 << uploading;
    QTest::newRow("status goes to column 4") << text(&main_model::update_status) << 4 << 0 << uploading;
    QTest::newRow("colour goes to column 4")
        << update([](main_model& m, const QString& id) { m.update_color(id, main_model::status_color(0)); }) << 4
        << int(Qt::BackgroundRole) << QVariant(QColor(255, 225, 220));
    QTest::newRow("selection goes to column 0")
        << update([](main_model& m, const QString& id) { m.set_selected(id, false); }) << 0 << int(Qt::CheckStateRole)
        << QVariant(0);
}

// An unknown ident changes nothing; a known one repaints its own cell and no other.
void test_ui_models::update_touches_one_cell()
{
    QFETCH(update, apply);
    QFETCH(int, column);
    QFETCH(int, role);
    QFETCH(QVariant, value);
    main_model model;
    fill(model, 3);
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
    QTest::newRow("the view's unchecked state clears") << 10 << QVariant(int(Qt::Unchecked)) << 0;
    QTest::newRow("the view's checked state sets") << 10 << QVariant(int(Qt::Checked)) << 1;
    QTest::newRow("a bool false clears") << 10 << QVariant(false) << 0;
    QTest::newRow("a bool true sets") << 10 << QVariant(true) << 1;
    QTest::newRow("the edit role is refused") << 2 << QVariant("edited") << -1;
    QTest::newRow("the display role is refused") << 0 << QVariant("edited") << -1;
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
    QSignalSpy about(&model, &QAbstractItemModel::rowsAboutToBeRemoved);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.clear(); // on empty: no signal at all
    QCOMPARE(about.count() + removed.count() + reset.count(), 0);
    fill(model, 4);
    model.remove_record(QStringLiteral("no-such-ident"));
    QCOMPARE(removed.count(), 0);
    // Later rows move up, and the index by ident follows them.
    model.remove_record(QStringLiteral("id-1"));
    QCOMPARE(removed.takeFirst().mid(1), (QList<QVariant> { 1, 1 }));
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(model.data(model.index(1, 0), main_model::ident_role).toString(), QStringLiteral("id-2"));
    QCOMPARE(model.row_of(QStringLiteral("id-2")), 1);
    QCOMPARE(model.row_of(QStringLiteral("id-1")), -1);
    QCOMPARE(model.at(2).ident, QStringLiteral("id-3"));
    QVERIFY_EXCEPTION_THROWN(model.at(3), std::out_of_range);
    // Clearing removes all rows in one signal.
    model.clear();
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).mid(1), (QList<QVariant> { 0, 2 }));
    QCOMPARE(model.rowCount(), 0);
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

void test_ui_models::filter_hides_columns_data()
{
    using L = QList<int>;
    QTest::addColumn<L>("hidden");
    QTest::addColumn<QStringList>("headers");
    const QStringList all { "Device", "Serial", "MAC address", "Info", "Operation" };
    QTest::newRow("nothing hidden shows all five") << L {} << all;
    QTest::newRow("hiding mac shifts info and status left")
        << L { 2 } << QStringList { "Device", "Serial", "Info", "Operation" };
    QTest::newRow("hiding the first and last") << L { 4, 0 } << QStringList { "Serial", "MAC address", "Info" };
    QTest::newRow("unknown columns are ignored") << L { 7 } << all;
    QTest::newRow("hiding all keeps the rows") << L { 0, 1, 2, 3, 4 } << QStringList {};
}

void test_ui_models::filter_hides_columns()
{
    QFETCH(QList<int>, hidden);
    QFETCH(QStringList, headers);
    main_model model;
    fill(model, 2);
    main_model_filter filter;
    filter.setSourceModel(&model);
    filter.set_hidden_columns(hidden);
    QCOMPARE(filter.columnCount(), headers.size());
    for (int c = 0; c < headers.size(); ++c) {
        QCOMPARE(filter.headerData(c, Qt::Horizontal, Qt::DisplayRole).toString(), headers[c]);
        const int source = filter.source_column(c);
        QCOMPARE(filter.proxy_column(source), c);
        QCOMPARE(filter.mapToSource(filter.index(1, c)).column(), source);
        QCOMPARE(filter.data(filter.index(1, c)), model.data(model.index(1, source)));
    }
    for (int c : hidden)
        QCOMPARE(filter.proxy_column(c), -1);
    QCOMPARE(model.rowCount(), 2);
    filter.set_hidden_columns({});
    QCOMPARE(filter.columnCount(), 5);
    QCOMPARE(filter.data(filter.index(1, 1)).toString(), QStringLiteral("SER-id-1"));
}

void test_ui_models::problems_number_rows_in_arrival_order()
{
    problems model;
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    model.append("10:00:01", "check_updates", "admin@127.0.0.2", "S1", "Failed to access the service");
    model.append("10:00:02", "confirm", "admin@127.0.0.3", "S2", "Remote service error");
    model.append("10:00:03", "flash", "cam", "", "timeout");
    QCOMPARE(inserted.count(), 3);
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(model.columnCount(), 5);
    const QStringList headers { "Time", "Task", "Endpoint", "Serial", "Description" };
    const QStringList second { "10:00:02", "confirm", "admin@127.0.0.3", "S2", "Remote service error" };
    for (int column = 0; column < 5; ++column) {
        QCOMPARE(model.headerData(column, Qt::Horizontal, Qt::DisplayRole).toString(), headers[column]);
        QCOMPARE(model.data(model.index(1, column)).toString(), second[column]);
        for (int row = 0; row < 3; ++row)
            QCOMPARE(model.data(model.index(row, column), 256).toUInt(), quint32(row + 1));
    }
    for (int row = 0; row < 3; ++row)
        QCOMPARE(inserted.at(row).at(1).toInt(), row);
    QVERIFY(!model.data(model.index(0, 0), Qt::BackgroundRole).isValid());
}

QTEST_MAIN(test_ui_models)
#include "test_ui_models.moc"
