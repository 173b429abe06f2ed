#pragma once

#include <QAbstractTableModel>
#include <QColor>
#include <QHash>
#include <QIcon>
#include <QString>

#include <functional>
#include <vector>

// The device table: one row per task, a plain store of display texts that core
// updates by the task's ident. It never reads the tasks itself.
class main_model final : public QAbstractTableModel
{
    Q_OBJECT
public:
    struct record {
        QString ident;
        QString display; // column 0
        QString mac; // column 2
        QString serial; // column 1
        QString summary; // column 3
        QString status; // column 4
        QColor color; // background of column 4
        bool selected = true;
    };

    enum column : int {
        col_display = 0,
        col_serial = 1,
        col_mac = 2,
        col_summary = 3,
        col_status = 4,
        column_count = 5
    };
    static constexpr int ident_role = Qt::UserRole;

    explicit main_model(QObject* parent = nullptr);
    ~main_model() override;
    Q_DISABLE_COPY_MOVE(main_model)

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    // Takes the check state only; tells core by selection_changed, the view has drawn it already.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // A new row as core introduces it: "No information", "Added", transparent, selected.
    static record make_record(const QString& ident, const QString& display, const QString& mac = {});
    // Background of a status cell by core's colour mode: 0 failure, 1 success, 2 in progress;
    // any other mode gives the invalid colour, so the view's own background shows.
    static QColor status_color(int mode);
    // Column names of the layout settings ("display", "serial", ...); -1 for an unknown name.
    static QString column_name(int column);
    static int column_by_name(const QString& name);

    void add_record(const record& r);
    void remove_record(const QString& ident);
    void clear();
    void set_selected(const QString& ident, bool selected);
    // Check boxes stop responding but still show.
    void set_read_only(bool read_only);
    bool read_only() const { return m_read_only; }

    void update_display(const QString& ident, const QString& text);
    void update_mac(const QString& ident, const QString& text);
    void update_serial(const QString& ident, const QString& text);
    void update_summary(const QString& ident, const QString& text);
    void update_status(const QString& ident, const QString& text);
    void update_color(const QString& ident, const QColor& color);

    // Row of an ident, -1 when absent.
    int row_of(const QString& ident) const;
    // Copy of a row; an index past the end throws std::out_of_range.
    record at(int row) const { return m_records.at(size_t(row)); }

signals:
    void selection_changed(const QString& ident, bool state);

private:
    // Applies change to the row of ident; change returns the column it touched, or -1 when
    // nothing changed.
    void update(const QString& ident, const std::function<int(record&)>& change);

    // Numbers the rows afresh after a removal; the first row of an ident is the one found.
    void index_rows();

    std::vector<record> m_records;
    // Row by ident: a fleet's progress reaches the model thousands of times a second.
    QHash<QString, int> m_rows;
    bool m_read_only = false;
    QIcon m_icon;
};
