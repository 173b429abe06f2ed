#include "ui/column_layout.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

#include "diagnostics/blackbox.h"
#include "ui/main_model.h"

namespace
{

const QString fields_key = QStringLiteral("fields");
const QString order_key = QStringLiteral("order");

} // namespace

std::optional<column_layout> column_layout::from_value(const QVariant& value)
{
    QJsonObject root;
    if (value.userType() == QMetaType::QVariantMap) {
        root = QJsonObject::fromVariantMap(value.toMap());
    } else {
        QJsonParseError error {};
        const QJsonDocument doc = QJsonDocument::fromJson(value.toString().toUtf8(), &error);
        if (error.error != QJsonParseError::NoError || !doc.isObject()) {
            if (!value.toString().isEmpty())
                write_sub("ui", "columns", blackbox::warning, "column layout isn't a JSON object, default used");
            return std::nullopt;
        }
        root = doc.object();
    }
    if (!root.value(fields_key).isArray() || !root.value(order_key).isString()) {
        write_sub("ui", "columns", blackbox::warning, "column layout lacks fields or order, default used");
        return std::nullopt;
    }

    column_layout layout;
    for (const QJsonValue& item : root.value(fields_key).toArray()) {
        const QJsonObject object = item.toObject();
        const QJsonValue id = object.value(QStringLiteral("id"));
        const QJsonValue width = object.value(QStringLiteral("width"));
        if (!id.isDouble() || !width.isDouble())
            continue;
        layout.fields.append({ id.toInt(-1), width.toInt(0) });
    }
    layout.order = QByteArray::fromHex(root.value(order_key).toString().toLatin1());
    return layout;
}

QString column_layout::to_json() const
{
    QJsonArray array;
    for (const field& f : fields)
        array.append(QJsonObject { { QStringLiteral("id"), f.id }, { QStringLiteral("width"), f.width } });
    const QJsonObject root { { fields_key, array }, { order_key, QString::fromLatin1(order.toHex()) } };
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Compact));
}

QVector<column_layout::field> column_layout::from_script(const QStringList& texts, int viewport_width)
{
    const int usable = qMax(0, viewport_width - 3);
    QVector<field> result;
    for (const QString& text : texts) {
        const int colon = text.indexOf(QLatin1Char(':'));
        const int id = main_model::column_by_name((colon < 0 ? text : text.left(colon)).trimmed());
        if (id < 0)
            continue;
        int width = 0;
        if (colon >= 0) {
            QString number = text.mid(colon + 1).trimmed();
            const bool share = number.endsWith(QLatin1Char('%'));
            if (share)
                number.chop(1);
            width = qMax(0, number.toInt());
            if (share)
                width = usable * width / 100;
        }
        if (width == 0)
            width = texts.isEmpty() ? 0 : usable / texts.size();
        result.append({ id, width });
    }
    return result;
}

QList<int> column_layout::hidden_columns(int column_count) const
{
    return hidden_columns(fields, column_count);
}

QList<int> column_layout::hidden_columns(const QVector<field>& fields, int column_count)
{
    QList<int> hidden;
    for (int c = 0; c < column_count; ++c) {
        const bool listed = std::any_of(fields.begin(), fields.end(), [c](const field& f) { return f.id == c; });
        if (!listed)
            hidden.append(c);
    }
    return hidden;
}
