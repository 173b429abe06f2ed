#include "scripting/actions_db.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QUuid>

namespace scripting
{

namespace
{

    const QString layout_key = QStringLiteral("QuickActions/layout");
    const QString actions_group = QStringLiteral("QuickActions/Actions");

    QString without_braces(const QString& identifier)
    {
        return identifier.mid(1, identifier.size() - 2);
    }

    QString with_braces(const QString& key)
    {
        return QLatin1Char('{') + key + QLatin1Char('}');
    }

    // Faulty JSON reads as an object without members: an action with empty fields.
    quick_action action_from_json(const QString& text)
    {
        const QJsonObject o = QJsonDocument::fromJson(text.toUtf8()).object();
        return { o.value(QStringLiteral("icon")).toString(), o.value(QStringLiteral("title")).toString(),
            o.value(QStringLiteral("mode")).toInt(), o.value(QStringLiteral("value")).toString() };
    }

    QString action_to_json(const quick_action& a)
    {
        const QJsonObject o { { QStringLiteral("icon"), a.icon }, { QStringLiteral("title"), a.title },
            { QStringLiteral("mode"), a.mode }, { QStringLiteral("value"), a.value } };
        return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
    }

    // An unquoted value with commas comes back from the INI file as a list.
    QString setting_text(const QVariant& value)
    {
        return value.type() == QVariant::StringList ? value.toStringList().join(QLatin1Char(',')) : value.toString();
    }

} // namespace

actions_db::actions_db(QObject* parent)
    : QObject(parent)
    , m_layout_model([this](const QString& identifier) { return m_actions.value(identifier).title; })
{
}

void actions_db::load(QSettings& settings)
{
    m_actions.clear();
    settings.beginGroup(actions_group);
    for (const QString& key : settings.childKeys())
        m_actions.insert(with_braces(key), action_from_json(setting_text(settings.value(key))));
    settings.endGroup();

    m_layout.clear();
    const QJsonArray layout = QJsonDocument::fromJson(setting_text(settings.value(layout_key)).toUtf8()).array();
    for (const QJsonValue& entry : layout) {
        const QString key = entry.toString();
        if (key.isEmpty())
            m_layout << QString();
        else if (m_actions.contains(with_braces(key)))
            m_layout << with_braces(key);
    }
    altered();
}

void actions_db::save(QSettings& settings) const
{
    settings.remove(actions_group);
    settings.beginGroup(actions_group);
    for (auto it = m_actions.cbegin(); it != m_actions.cend(); ++it)
        settings.setValue(without_braces(it.key()), action_to_json(it.value()));
    settings.endGroup();

    QJsonArray layout;
    for (const QString& identifier : m_layout)
        layout.append(identifier.isEmpty() ? QString() : without_braces(identifier));
    settings.setValue(layout_key, QString::fromUtf8(QJsonDocument(layout).toJson(QJsonDocument::Compact)));
}

QString actions_db::add_action(const quick_action& action, int position)
{
    const QString identifier = QUuid::createUuid().toString();
    m_actions.insert(identifier, action);
    m_layout.insert(qBound(0, position, m_layout.size()), identifier);
    altered();
    return identifier;
}

bool actions_db::edit_action(const QString& identifier, const quick_action& action)
{
    if (!m_actions.contains(identifier))
        return false;
    m_actions.insert(identifier, action);
    altered();
    return true;
}

bool actions_db::remove_action(int position)
{
    if (position < 0 || position >= m_layout.size())
        return false;
    const QString identifier = m_layout.takeAt(position);
    // An action stands in the layout once; a separator has no record.
    m_actions.remove(identifier);
    altered();
    return true;
}

void actions_db::add_separator(int position)
{
    m_layout.insert(qBound(0, position, m_layout.size()), QString());
    altered();
}

bool actions_db::move(int from, int to)
{
    if (from < 0 || from >= m_layout.size() || to < 0 || to >= m_layout.size())
        return false;
    m_layout.move(from, to);
    altered();
    return true;
}

quick_action actions_db::action(const QString& identifier) const
{
    return m_actions.value(identifier);
}

void actions_db::altered()
{
    m_layout_model.set_layout(m_layout);
    emit actions_altered();
}

} // namespace scripting
