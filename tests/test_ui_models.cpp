#include <QSignalSpy>
#include <QtTest>

#include <stdexcept>

#include "ui/column_layout.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/problems.h"

namespace
{

main_model::record row(const QString& ident)
{
    main_model::record r = main_model::make_record(ident, QStringLiteral("admin@10.0.0.%1").arg(ident.right(1)));
    r.serial = QStringLiteral("SER-") + ident;
    r.mac = QStringLiteral("00:11:22:33:44:0") + ident.right(1);
    return r;
}

void fill(main_model& model, int count)
{
    for (int i = 0; i < count; ++i)
        model.add_record(row(QStringLiteral("id-%1").arg(i)));
}

using updater = void (main_model::*)(const QString&, const QString&);

} // namespace

Q_DECLARE_METATYPE(updater)
Q_DECLARE_METATYPE(QVector<column_layout::field>)

class test_ui_models : public QObject
{
    Q_OBJECT
private slots:
    void data_by_role_and_column_data();
    void data_by_role_and_column();
    void row_past_the_end_throws();
    void flags_data();
    void flags();
    void update_changes_one_cell_data();
    void update_changes_one_cell();
    void unchanged_status_is_not_repainted();
    void update_of_unknown_ident_is_a_no_op_data();
    void update_of_unknown_ident_is_a_no_op();
    void color_and_selection_updates_touch_their_cell();
    void set_data_emits_selection_changed_only_data();
    void set_data_emits_selection_changed_only();
    void set_data_refuses_other_roles();
    void clear_on_empty_emits_nothing();
    void clear_removes_all_rows_at_once();
    void remove_record_moves_later_rows_up();
    void read_only_repaints_column_0_and_keeps_check_state();
    void header_data();
    void status_colors_data();
    void status_colors();
    void filter_hides_columns_data();
    void filter_hides_columns();
    void filter_hiding_all_columns_keeps_data();
    void problems_number_rows_in_arrival_order();
    void column_layout_from_value_data();
    void column_layout_from_value();
    void column_layout_round_trip();
    void column_layout_from_script_data();
    void column_layout_from_script();
};

void test_ui_models::data_by_role_and_column_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<int>("role");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("display of column 0 is the address") << 0 << 0 << QVariant(QStringLiteral("admin@10.0.0.1"));
    QTest::newRow("display of column 1 is the serial") << 1 << 0 << QVariant(QStringLiteral("SER-id-1"));
    QTest::newRow("display of column 2 is the mac") << 2 << 0 << QVariant(QStringLiteral("00:11:22:33:44:01"));
    QTest::newRow("display of column 3 is the summary") << 3 << 0 << QVariant(QStringLiteral("No information"));
    QTest::newRow("display of column 4 is the status") << 4 << 0 << QVariant(QStringLiteral("Added"));
    QTest::newRow("check state only in column 0") << 0 << 10 << QVariant(2);
    QTest::newRow("no check state in column 1") << 1 << 10 << QVariant();
    QTest::newRow("background only in column 4") << 4 << 8 << QVariant(QColor(0, 0, 0, 0));
    QTest::newRow("no background in column 0") << 0 << 8 << QVariant();
    QTest::newRow("no decoration in column 3") << 3 << 1 << QVariant();
    QTest::newRow("ident in column 0") << 0 << 256 << QVariant(QStringLiteral("id-1"));
    QTest::newRow("ident in column 3") << 3 << 256 << QVariant(QStringLiteral("id-1"));
    QTest::newRow("tool tip is not offered") << 0 << 3 << QVariant();
}

void test_ui_models::data_by_role_and_column()
{
    QFETCH(int, column);
    QFETCH(int, role);
    QFETCH(QVariant, expected);
    main_model model;
    fill(model, 2);
    const QVariant value = model.data(model.index(1, column), role);
    QCOMPARE(value.isValid(), expected.isValid());
    if (expected.userType() == QMetaType::QColor)
        QCOMPARE(value.value<QColor>(), expected.value<QColor>());
    else if (expected.isValid())
        QCOMPARE(value, expected);
}

void test_ui_models::row_past_the_end_throws()
{
    main_model model;
    fill(model, 1);
    QVERIFY_EXCEPTION_THROWN(model.at(1), std::out_of_range);
    QCOMPARE(model.at(0).ident, QStringLiteral("id-0"));
    QVERIFY(!model.data(QModelIndex(), 0).isValid());
    // The shared icon comes from the compiled-in SVG set.
    QVERIFY(!model.data(model.index(0, 0), Qt::DecorationRole).value<QIcon>().pixmap(16, 16).isNull());
}

void test_ui_models::flags_data()
{
    QTest::addColumn<int>("column");
    QTest::addColumn<bool>("read_only");
    QTest::addColumn<int>("expected");

    QTest::newRow("column 0 is checkable") << 0 << false << 49;
    QTest::newRow("read only column 0 is disabled but keeps its box") << 0 << true << 17;
    QTest::newRow("other columns are plain") << 2 << false << 33;
    QTest::newRow("read only leaves other columns alone") << 4 << true << 33;
}

void test_ui_models::flags()
{
    QFETCH(int, column);
    QFETCH(bool, read_only);
    QFETCH(int, expected);
    main_model model;
    fill(model, 1);
    model.set_read_only(read_only);
    QCOMPARE(int(model.flags(model.index(0, column))), expected);
}

void test_ui_models::update_changes_one_cell_data()
{
    QTest::addColumn<updater>("update");
    QTest::addColumn<int>("column");

    QTest::newRow("display goes to column 0") << &main_model::update_display << 0;
    QTest::newRow("serial goes to column 1") << &main_model::update_serial << 1;
    QTest::newRow("mac goes to column 2") << &main_model::update_mac << 2;
    QTest::newRow("summary goes to column 3") << &main_model::update_summary << 3;
    QTest::newRow("status goes to column 4") << &main_model::update_status << 4;
}

void test_ui_models::update_changes_one_cell()
{
    QFETCH(updater, update);
    QFETCH(int, column);
    main_model model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    (model.*update)(QStringLiteral("id-1"), QStringLiteral("new text"));

    QCOMPARE(changed.count(), 1);
    const auto top_left = changed.at(0).at(0).value<QModelIndex>();
    const auto bottom_right = changed.at(0).at(1).value<QModelIndex>();
    QCOMPARE(top_left, model.index(1, column));
    QCOMPARE(bottom_right, model.index(1, column));
    QCOMPARE(model.data(model.index(1, column), Qt::DisplayRole).toString(), QStringLiteral("new text"));
    // Neighbours keep their texts.
    QVERIFY(model.data(model.index(0, column), Qt::DisplayRole).toString() != QStringLiteral("new text"));
    QVERIFY(model.data(model.index(2, column), Qt::DisplayRole).toString() != QStringLiteral("new text"));
}

void test_ui_models::unchanged_status_is_not_repainted()
{
    main_model model;
    fill(model, 2);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    for (int i = 0; i < 3; ++i) {
        model.update_status(QStringLiteral("id-1"), QStringLiteral("Uploading: 7%"));
        model.update_color(QStringLiteral("id-1"), main_model::status_color(2));
    }
    QCOMPARE(changed.count(), 2);
    model.update_status(QStringLiteral("id-1"), QStringLiteral("Uploading: 8%"));
    QCOMPARE(changed.count(), 3);
}

void test_ui_models::update_of_unknown_ident_is_a_no_op_data()
{
    update_changes_one_cell_data();
}

void test_ui_models::update_of_unknown_ident_is_a_no_op()
{
    QFETCH(updater, update);
    QFETCH(int, column);
    main_model model;
    fill(model, 2);
    const QString before = model.data(model.index(0, column), Qt::DisplayRole).toString();
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    (model.*update)(QStringLiteral("no-such-ident"), QStringLiteral("x"));
    model.update_color(QStringLiteral("no-such-ident"), Qt::red);
    model.set_selected(QStringLiteral("no-such-ident"), false);
    model.remove_record(QStringLiteral("no-such-ident"));

    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.data(model.index(0, column), Qt::DisplayRole).toString(), before);
}

void test_ui_models::color_and_selection_updates_touch_their_cell()
{
    main_model model;
    fill(model, 2);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    model.update_color(QStringLiteral("id-1"), main_model::status_color(0));
    model.set_selected(QStringLiteral("id-1"), false);

    QCOMPARE(changed.count(), 2);
    QCOMPARE(changed.at(0).at(0).value<QModelIndex>(), model.index(1, 4));
    QCOMPARE(changed.at(0).at(1).value<QModelIndex>(), model.index(1, 4));
    QCOMPARE(changed.at(1).at(0).value<QModelIndex>(), model.index(1, 0));
    QCOMPARE(changed.at(1).at(1).value<QModelIndex>(), model.index(1, 0));
    QCOMPARE(model.data(model.index(1, 4), Qt::BackgroundRole).value<QColor>(), QColor(255, 225, 220));
    QCOMPARE(model.data(model.index(1, 0), Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
    QCOMPARE(model.data(model.index(0, 0), Qt::CheckStateRole).toInt(), int(Qt::Checked));
}

void test_ui_models::set_data_emits_selection_changed_only_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("expected");

    QTest::newRow("the view's unchecked state clears") << QVariant(int(Qt::Unchecked)) << false;
    QTest::newRow("the view's checked state sets") << QVariant(int(Qt::Checked)) << true;
    QTest::newRow("a bool false clears") << QVariant(false) << false;
    QTest::newRow("a bool true sets") << QVariant(true) << true;
}

void test_ui_models::set_data_emits_selection_changed_only()
{
    QFETCH(QVariant, value);
    QFETCH(bool, expected);
    main_model model;
    fill(model, 2);
    model.set_selected(QStringLiteral("id-1"), !expected);
    QSignalSpy selection(&model, &main_model::selection_changed);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    QVERIFY(model.setData(model.index(1, 0), value, Qt::CheckStateRole));

    QCOMPARE(selection.count(), 1);
    QCOMPARE(selection.at(0).at(0).toString(), QStringLiteral("id-1"));
    QCOMPARE(selection.at(0).at(1).toBool(), expected);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.data(model.index(1, 0), Qt::CheckStateRole).toInt(), expected ? 2 : 0);
}

void test_ui_models::set_data_refuses_other_roles()
{
    main_model model;
    fill(model, 1);
    QSignalSpy selection(&model, &main_model::selection_changed);
    QVERIFY(!model.setData(model.index(0, 0), QStringLiteral("edited"), Qt::EditRole));
    QVERIFY(!model.setData(model.index(0, 0), QStringLiteral("edited"), Qt::DisplayRole));
    QCOMPARE(selection.count(), 0);
    QCOMPARE(model.data(model.index(0, 0), Qt::DisplayRole).toString(), QStringLiteral("admin@10.0.0.0"));
}

void test_ui_models::clear_on_empty_emits_nothing()
{
    main_model model;
    QSignalSpy about(&model, &QAbstractItemModel::rowsAboutToBeRemoved);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.clear();
    QCOMPARE(about.count() + removed.count() + reset.count(), 0);
}

void test_ui_models::clear_removes_all_rows_at_once()
{
    main_model model;
    fill(model, 4);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.clear();
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).at(1).toInt(), 0);
    QCOMPARE(removed.at(0).at(2).toInt(), 3);
    QCOMPARE(model.rowCount(), 0);
}

void test_ui_models::remove_record_moves_later_rows_up()
{
    main_model model;
    fill(model, 3);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.remove_record(QStringLiteral("id-1"));
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).at(1).toInt(), 1);
    QCOMPARE(removed.at(0).at(2).toInt(), 1);
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.data(model.index(1, 0), main_model::ident_role).toString(), QStringLiteral("id-2"));
    QCOMPARE(model.row_of(QStringLiteral("id-2")), 1);
    QCOMPARE(model.row_of(QStringLiteral("id-1")), -1);
}

void test_ui_models::read_only_repaints_column_0_and_keeps_check_state()
{
    main_model model;
    fill(model, 3);
    model.set_selected(QStringLiteral("id-2"), false);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    model.set_read_only(true);

    QCOMPARE(changed.count(), 3);
    for (int row = 0; row < 3; ++row) {
        QCOMPARE(changed.at(row).at(0).value<QModelIndex>(), model.index(row, 0));
        QCOMPARE(changed.at(row).at(1).value<QModelIndex>(), model.index(row, 0));
    }
    QCOMPARE(model.data(model.index(0, 0), Qt::CheckStateRole).toInt(), 2);
    QCOMPARE(model.data(model.index(2, 0), Qt::CheckStateRole).toInt(), 0);
    model.set_read_only(false);
    QCOMPARE(int(model.flags(model.index(0, 0))), 49);
}

void test_ui_models::header_data()
{
    main_model model;
    const QStringList headers { "Device", "Serial", "MAC address", "Info", "Operation" };
    for (int section = 0; section < headers.size(); ++section) {
        QCOMPARE(model.headerData(section, Qt::Horizontal, Qt::DisplayRole).toString(), headers[section]);
        QCOMPARE(model.headerData(section, Qt::Horizontal, 256).toInt(), section);
        QVERIFY(!model.headerData(section, Qt::Horizontal, Qt::ToolTipRole).isValid());
    }
    QVERIFY(!model.headerData(0, Qt::Vertical, Qt::DisplayRole).isValid());
    QVERIFY(!model.headerData(0, Qt::Vertical, 256).isValid());
    QCOMPARE(model.columnCount(), 5);
}

void test_ui_models::status_colors_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QColor>("expected");

    QTest::newRow("failure is pale red") << 0 << QColor(255, 225, 220, 255);
    QTest::newRow("success is pale green") << 1 << QColor(220, 255, 225, 255);
    QTest::newRow("progress is pale yellow") << 2 << QColor(255, 255, 225, 255);
    QTest::newRow("any other mode clears") << 3 << QColor();
    QTest::newRow("a negative mode clears") << -1 << QColor();
}

void test_ui_models::status_colors()
{
    QFETCH(int, mode);
    QFETCH(QColor, expected);
    QCOMPARE(main_model::status_color(mode), expected);
    QCOMPARE(main_model::status_color(mode).isValid(), expected.isValid());
}

void test_ui_models::filter_hides_columns_data()
{
    QTest::addColumn<QList<int>>("hidden");
    QTest::addColumn<QStringList>("headers");

    QTest::newRow("nothing hidden shows all five")
        << QList<int> {} << QStringList { "Device", "Serial", "MAC address", "Info", "Operation" };
    QTest::newRow("hiding mac shifts info and status left")
        << QList<int> { 2 } << QStringList { "Device", "Serial", "Info", "Operation" };
    QTest::newRow("hiding the first and last")
        << QList<int> { 4, 0 } << QStringList { "Serial", "MAC address", "Info" };
    QTest::newRow("unknown columns are ignored")
        << QList<int> { 7 } << QStringList { "Device", "Serial", "MAC address", "Info", "Operation" };
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
}

void test_ui_models::filter_hiding_all_columns_keeps_data()
{
    main_model model;
    fill(model, 2);
    main_model_filter filter;
    filter.setSourceModel(&model);
    filter.set_hidden_columns({ 0, 1, 2, 3, 4 });
    QCOMPARE(filter.columnCount(), 0);
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.data(model.index(1, 1)).toString(), QStringLiteral("SER-id-1"));
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
    for (int row = 0; row < 3; ++row) {
        QCOMPARE(inserted.at(row).at(1).toInt(), row);
        for (int column = 0; column < 5; ++column)
            QCOMPARE(model.data(model.index(row, column), 256).toUInt(), quint32(row + 1));
    }
    QCOMPARE(model.data(model.index(1, 0)).toString(), QStringLiteral("10:00:02"));
    QCOMPARE(model.data(model.index(1, 1)).toString(), QStringLiteral("confirm"));
    QCOMPARE(model.data(model.index(1, 2)).toString(), QStringLiteral("admin@127.0.0.3"));
    QCOMPARE(model.data(model.index(1, 3)).toString(), QStringLiteral("S2"));
    QCOMPARE(model.data(model.index(1, 4)).toString(), QStringLiteral("Remote service error"));
    const QStringList headers { "Time", "Task", "Endpoint", "Serial", "Description" };
    for (int c = 0; c < 5; ++c)
        QCOMPARE(model.headerData(c, Qt::Horizontal, Qt::DisplayRole).toString(), headers[c]);
    QVERIFY(!model.data(model.index(0, 0), Qt::BackgroundRole).isValid());
}

void test_ui_models::column_layout_from_value_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<int>("field_count");

    QTest::newRow("a full document is taken")
        << QVariant(R"({"fields":[{"id":0,"width":120},{"id":4,"width":200}],"order":"00ff"})") << true << 2;
    QTest::newRow("text that isn't JSON is ignored") << QVariant("{fields: nope") << false << 0;
    QTest::newRow("an array is ignored") << QVariant(R"([{"id":0,"width":1}])") << false << 0;
    QTest::newRow("a document without order is ignored") << QVariant(R"({"fields":[]})") << false << 0;
    QTest::newRow("a document without fields is ignored") << QVariant(R"({"order":""})") << false << 0;
    QTest::newRow("fields that aren't an array are ignored") << QVariant(R"({"fields":3,"order":""})") << false << 0;
    QTest::newRow("an empty value is ignored") << QVariant() << false << 0;
    QTest::newRow("bad field entries are skipped")
        << QVariant(R"({"fields":[{"id":"x","width":1},{"width":5},7,{"id":3,"width":50}],"order":""})") << true << 1;
    QTest::newRow("a settings map is read like the text") << QVariant(
        QVariantMap { { "fields", QVariantList { QVariantMap { { "id", 1 }, { "width", 90 } } } }, { "order", "" } })
                                                          << true << 1;
}

void test_ui_models::column_layout_from_value()
{
    QFETCH(QVariant, value);
    QFETCH(bool, accepted);
    QFETCH(int, field_count);
    const auto layout = column_layout::from_value(value);
    QCOMPARE(layout.has_value(), accepted);
    if (layout)
        QCOMPARE(layout->fields.size(), field_count);
}

void test_ui_models::column_layout_round_trip()
{
    column_layout layout;
    layout.fields = { { 0, 150 }, { 3, 77 }, { 4, 300 } };
    layout.order = QByteArray("\x00\x01\xfe\xff", 4);
    const auto back = column_layout::from_value(layout.to_json());
    QVERIFY(back.has_value());
    QCOMPARE(back->fields, layout.fields);
    QCOMPARE(back->order, layout.order);
    QCOMPARE(back->hidden_columns(5), (QList<int> { 1, 2 }));
}

void test_ui_models::column_layout_from_script_data()
{
    using fields = QVector<column_layout::field>;
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<int>("viewport");
    QTest::addColumn<fields>("expected");

    QTest::newRow("pixels are taken as they stand")
        << QStringList { "display:120", "status:80" } << 503 << fields { { 0, 120 }, { 4, 80 } };
    QTest::newRow("a share is of the viewport less 3")
        << QStringList { "serial:50%", "mac:25%" } << 403 << fields { { 1, 200 }, { 2, 100 } };
    QTest::newRow("a bare name takes an even share")
        << QStringList { "display", "summary" } << 403 << fields { { 0, 200 }, { 3, 200 } };
    QTest::newRow("unknown names are skipped but counted in the share")
        << QStringList { "display", "bogus:30", "status" } << 303 << fields { { 0, 100 }, { 4, 100 } };
    QTest::newRow("a width that isn't a number is an even share")
        << QStringList { "mac:wide" } << 103 << fields { { 2, 100 } };
    QTest::newRow("nothing known gives nothing") << QStringList { "foo", "bar:10" } << 500 << fields {};
}

void test_ui_models::column_layout_from_script()
{
    using fields = QVector<column_layout::field>;
    QFETCH(QStringList, texts);
    QFETCH(int, viewport);
    QFETCH(fields, expected);
    QCOMPARE(column_layout::from_script(texts, viewport), expected);
}

QTEST_MAIN(test_ui_models)
#include "test_ui_models.moc"
