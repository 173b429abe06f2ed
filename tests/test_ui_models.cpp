// The table's model and its filter, and the models of the dialog that applies a firmware pack.
#include <QtTest>
#include <QtWidgets>

#include <stdexcept>

#include "ui/apply_pack.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/pack_content_model.h"

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
    void check_marks_and_read_only();
    void sorting_filters_and_ticks_through_the_proxy();
    void update_touches_one_cell_data();
    void update_touches_one_cell();
    void removal_bookkeeping();
    void check_marks_survive_switching_packs();
};

// Marks live in column 0 alone and are set from the view, reported as a selection change, not repainted as
// data; read only (during a run) disables them without losing them.
void test_ui_models::check_marks_and_read_only()
{
    main_model model;
    fill(model, 2);
    model.set_selected(QStringLiteral("id-0"), false);
    const QModelIndex mark = model.index(1, 0), status = model.index(1, main_model::col_status);
    QCOMPARE(model.data(mark).toString(), QStringLiteral("admin@10.0.0.1"));
    QCOMPARE(model.data(status).toString(), QStringLiteral("Added"));
    QVERIFY(!model.data(status, Qt::CheckStateRole).isValid());
    QCOMPARE(int(model.flags(mark)), 49);
    QCOMPARE(int(model.flags(status)), 33);

    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.set_read_only(true);
    QCOMPARE((QList<int> { int(model.flags(mark)), int(model.flags(status)) }), (QList<int> { 17, 33 }));
    QCOMPARE(changed.count(), 2);
    for (int row = 0; row < 2; ++row)
        QCOMPARE(cell_of(changed.at(row)), model.index(row, 0));
    QCOMPARE(model.data(model.index(0, 0), Qt::CheckStateRole).toInt(), 0);
    QCOMPARE(model.data(mark, Qt::CheckStateRole).toInt(), 2);
    model.set_read_only(false);
    QCOMPARE(int(model.flags(mark)), 49);

    changed.clear();
    QSignalSpy selection(&model, &main_model::selection_changed);
    QVERIFY(!model.setData(mark, "edited", Qt::EditRole));
    QVERIFY(model.setData(model.index(0, 0), int(Qt::Checked), Qt::CheckStateRole));
    QVERIFY(model.setData(mark, false, Qt::CheckStateRole));
    QCOMPARE(selection, (QList<QList<QVariant>> { { "id-0", true }, { "id-1", false } }));
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.data(model.index(0, 0), Qt::CheckStateRole).toInt(), 2);
    QCOMPARE(model.data(mark, Qt::CheckStateRole).toInt(), 0);
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
    const auto apply = [&](const QString& id) {
        if (update == "display")
            model.update_display(id, "Uploading: 7%");
        else if (update == "status")
            model.update_status(id, "Uploading: 7%");
        else if (update == "colour")
            model.update_color(id, main_model::status_color(0));
        else
            model.set_selected(id, false);
    };
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    apply(QStringLiteral("no-such-ident"));
    QCOMPARE(changed.count(), 0);
    apply(QStringLiteral("id-1"));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(cell_of(changed.at(0)), model.index(1, column));
    QCOMPARE(model.data(model.index(1, column), role), value);
    QVERIFY(model.data(model.index(0, column), role) != value);
    QVERIFY(model.data(model.index(2, column), role) != value);
    // An upload repeats its percentage chunk after chunk: an unchanged status cell isn't repainted.
    if (column == main_model::col_status) {
        apply(QStringLiteral("id-1"));
        QCOMPARE(changed.count(), 1);
    }
}

void test_ui_models::removal_bookkeeping()
{
    main_model model;
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
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
}

// The view's order and rows through the proxy follow the texts and colours core gives the model; ticks set
// through the proxy land on the right row and survive sorting and filtering.
void test_ui_models::sorting_filters_and_ticks_through_the_proxy()
{
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
    const auto seen = [&filter] {
        QString out;
        for (int row = 0; row < filter.rowCount(); ++row)
            out += filter.index(row, 0).data(main_model::ident_role).toString();
        return out;
    };
    // Failures first, together, then running, done, untouched.
    filter.sort(main_model::col_status, Qt::AscendingOrder);
    QCOMPARE(seen(), QStringLiteral("dbcae"));
    // Addresses by number, not by text.
    filter.sort(main_model::col_display, Qt::AscendingOrder);
    QCOMPARE(seen(), QStringLiteral("dceba"));
    QVERIFY(filter.setData(filter.index(0, 0), false, Qt::CheckStateRole));

    filter.set_row_filter(main_model_filter::failed_rows);
    QCOMPARE(seen(), QStringLiteral("db"));
    QCOMPARE(filter.index(0, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
    QCOMPARE(filter.index(1, 0).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    model.update_color("c", main_model::status_color(0));
    QCOMPARE(seen(), QStringLiteral("dcb"));
    model.update_color("d", main_model::status_color(2)); // run again
    QCOMPARE(seen(), QStringLiteral("cb"));
    filter.set_row_filter(main_model_filter::running_rows);
    QCOMPARE(seen(), QStringLiteral("d"));
    filter.set_row_filter(main_model_filter::all_rows);
    for (int row = 0; row < 5; ++row)
        QCOMPARE(model.at(row).selected, row != 3);
}

// Marks stay with their pack while another is shown; accepting emits the checked targets of the one shown.
void test_ui_models::check_marks_survive_switching_packs()
{
    apply_pack dialog;
    dialog.set_packs(three_packs);
    auto* packs_view = dialog.findChild<QListView*>("l_packs");
    auto go_to = [&](int row) { packs_view->setCurrentIndex(dialog.packs()->index(row)); };
    auto uncheck = [&](int row) { dialog.content()->setData(dialog.content()->index(row), false, Qt::CheckStateRole); };
    auto* ok = dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok);

    uncheck(1);
    go_to(2);
    QCOMPARE(dialog.current_path(), QStringLiteral("/data/site-b.ovpack"));
    QCOMPARE(checked_serials(dialog.current_targets()), (QStringList { "sn-9", "sn-8" }));
    uncheck(0);
    go_to(1); // the broken pack has no targets
    QCOMPARE(dialog.content()->rowCount(), 0);
    go_to(2);
    QCOMPARE(checked_serials(dialog.current_targets()), QStringList { "sn-8" });
    go_to(0);
    go_to(0); // again: nothing is reloaded over the marks

    QSignalSpy accepted(&dialog, &apply_pack::pack_accepted);
    ok->click();
    QCOMPARE(accepted.count(), 1);
    const auto targets = accepted.at(0).at(0).value<device_list>();
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
