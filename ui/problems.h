#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <QVector>

// The failures of a run, in arrival order, for the problems window. Append only.
class problems final : public QAbstractTableModel
{
    Q_OBJECT
public:
    struct record {
        quint32 sequence = 0; // row count at arrival plus 1
        QString when;
        QString task;
        QString endpoint;
        QString serial;
        QString description;
    };

    static constexpr int sequence_role = Qt::UserRole;
    static constexpr int column_count = 5;

    explicit problems(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(problems)

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    void append(const QString& when, const QString& task, const QString& endpoint, const QString& serial,
        const QString& description);

private:
    QVector<record> m_records;
};
