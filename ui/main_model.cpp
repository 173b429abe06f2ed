#include "ui/main_model.h"

#include "ui/resource_init.h"

main_model::main_model(QObject* parent)
    : QAbstractTableModel(parent)
{
    init_ui_resources();
    m_icon = QIcon(QStringLiteral(":/icn/add"));
}

main_model::~main_model() = default;

int main_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_records.size());
}

int main_model::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : column_count;
}

QVariant main_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    // A row past the end is a caller's error: at() reports it.
    const record& r = m_records.at(size_t(index.row()));
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        switch (column) {
        case col_display:
            return r.display;
        case col_serial:
            return r.serial;
        case col_mac:
            return r.mac;
        case col_summary:
            return r.summary;
        case col_status:
            return r.status;
        default:
            return {};
        }
    case Qt::DecorationRole:
        return column == col_display ? QVariant(m_icon) : QVariant();
    case Qt::BackgroundRole:
        // No colour falls back to the view's background; an invalid brush would paint black.
        return column == col_status && r.color.isValid() ? QVariant(r.color) : QVariant();
    case Qt::CheckStateRole:
        return column == col_display ? QVariant(int(r.selected ? Qt::Checked : Qt::Unchecked)) : QVariant();
    case ident_role:
        return r.ident;
    default:
        return {};
    }
}

bool main_model::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || !index.isValid() || index.row() >= rowCount())
        return false;
    record& r = m_records.at(size_t(index.row()));
    // The view sends a Qt::CheckState; scripts and tests may send a bool.
    r.selected = value.userType() == QMetaType::Bool ? value.toBool() : value.toInt() == Qt::Checked;
    emit selection_changed(r.ident, r.selected);
    return true;
}

QVariant main_model::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == ident_role)
        return section;
    if (role != Qt::DisplayRole)
        return {};
    switch (section) {
    case col_display:
        return tr("Device");
    case col_serial:
        return tr("Serial");
    case col_mac:
        return tr("MAC address");
    case col_summary:
        return tr("Info");
    case col_status:
        return tr("Operation");
    default:
        return {};
    }
}

Qt::ItemFlags main_model::flags(const QModelIndex& index) const
{
    if (index.column() != col_display)
        return Qt::ItemIsSelectable | Qt::ItemIsEnabled;
    // Read-only drops "enabled" rather than "checkable": the box keeps showing its
    // state, greyed, and stops taking clicks.
    if (m_read_only)
        return Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsUserCheckable;
}

main_model::record main_model::make_record(const QString& ident, const QString& display, const QString& mac)
{
    record r;
    r.ident = ident;
    r.display = display;
    r.mac = mac;
    r.summary = tr("No information");
    r.status = tr("Added");
    r.color = QColor(0, 0, 0, 0);
    r.selected = true;
    return r;
}

QColor main_model::status_color(int mode)
{
    switch (mode) {
    case 0:
        return QColor(255, 225, 220);
    case 1:
        return QColor(220, 255, 225);
    case 2:
        return QColor(255, 255, 225);
    default:
        return QColor();
    }
}

QString main_model::column_name(int column)
{
    static const QString names[column_count] = { QStringLiteral("display"), QStringLiteral("serial"),
        QStringLiteral("mac"), QStringLiteral("summary"), QStringLiteral("status") };
    return column >= 0 && column < column_count ? names[column] : QString();
}

int main_model::column_by_name(const QString& name)
{
    for (int c = 0; c < column_count; ++c) {
        if (column_name(c) == name)
            return c;
    }
    return -1;
}

void main_model::add_record(const record& r)
{
    const int row = rowCount();
    beginInsertRows({}, row, row);
    m_records.push_back(r);
    if (!m_rows.contains(r.ident))
        m_rows.insert(r.ident, row);
    endInsertRows();
}

void main_model::remove_record(const QString& ident)
{
    const int row = row_of(ident);
    if (row < 0)
        return;
    beginRemoveRows({}, row, row);
    m_records.erase(m_records.begin() + row);
    index_rows();
    endRemoveRows();
}

void main_model::clear()
{
    if (m_records.empty())
        return;
    beginRemoveRows({}, 0, rowCount() - 1);
    m_records.clear();
    m_rows.clear();
    endRemoveRows();
}

void main_model::set_selected(const QString& ident, bool selected)
{
    update(ident, [selected](record& r) {
        r.selected = selected;
        return int(col_display);
    });
}

void main_model::set_read_only(bool read_only)
{
    m_read_only = read_only;
    for (int row = 0; row < rowCount(); ++row)
        emit dataChanged(index(row, col_display), index(row, col_display));
}

void main_model::update_display(const QString& ident, const QString& text)
{
    update(ident, [&text](record& r) {
        r.display = text;
        return int(col_display);
    });
}

void main_model::update_mac(const QString& ident, const QString& text)
{
    update(ident, [&text](record& r) {
        r.mac = text;
        return int(col_mac);
    });
}

void main_model::update_serial(const QString& ident, const QString& text)
{
    update(ident, [&text](record& r) {
        r.serial = text;
        return int(col_serial);
    });
}

void main_model::update_summary(const QString& ident, const QString& text)
{
    update(ident, [&text](record& r) {
        r.summary = text;
        return int(col_summary);
    });
}

void main_model::update_status(const QString& ident, const QString& text)
{
    update(ident, [&text](record& r) {
        if (r.status == text)
            return -1;
        r.status = text;
        return int(col_status);
    });
}

void main_model::update_color(const QString& ident, const QColor& color)
{
    update(ident, [&color](record& r) {
        if (r.color == color)
            return -1;
        r.color = color;
        return int(col_status);
    });
}

int main_model::row_of(const QString& ident) const
{
    return m_rows.value(ident, -1);
}

void main_model::index_rows()
{
    m_rows.clear();
    for (size_t row = 0; row < m_records.size(); ++row) {
        if (!m_rows.contains(m_records[row].ident))
            m_rows.insert(m_records[row].ident, int(row));
    }
}

void main_model::update(const QString& ident, const std::function<int(record&)>& change)
{
    const int row = row_of(ident);
    if (row < 0)
        return;
    const int column = change(m_records[size_t(row)]);
    // An upload repeats its percentage chunk after chunk; an unchanged cell isn't repainted.
    if (column < 0)
        return;
    const QModelIndex cell = index(row, column);
    emit dataChanged(cell, cell);
}
