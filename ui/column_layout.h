#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#include <optional>

// How the device table's columns are laid out: which model columns show, at what
// width, and the header's own state (order of sections) as QHeaderView saves it.
class column_layout final
{
public:
    struct field {
        int id = -1; // model column
        int width = 0; // pixels
        bool operator==(const field& other) const { return id == other.id && width == other.width; }
    };

    QVector<field> fields;
    QByteArray order;

    // The stored form: {"fields": [{"id", "width"}...], "order": "<hex>"}. Nothing when the
    // value isn't a JSON object (text or map) with both keys; bad field entries are skipped.
    static std::optional<column_layout> from_value(const QVariant& value);
    QString to_json() const;

    // The script form: "name:width" (pixels), "name:width%" (share of viewport_width - 3),
    // "name" (an even share among all the texts). Unknown names are skipped.
    static QVector<field> from_script(const QStringList& texts, int viewport_width);

    // Model columns below column_count that no field lists.
    QList<int> hidden_columns(int column_count) const;
    static QList<int> hidden_columns(const QVector<field>& fields, int column_count);
};
