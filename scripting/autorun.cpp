#include "scripting/autorun.h"

#include <QSettings>
#include <QStringList>

namespace scripting {

namespace {

const QString list_key = QStringLiteral("Autorun/list");

} // namespace

QList<autorun_entry> autorun::parse(const QString& text)
{
    QList<autorun_entry> entries;
    for (const QString& entry : text.split(QStringLiteral(";;"), Qt::SkipEmptyParts)) {
        const QStringList fields = entry.split(QLatin1Char(';'));
        if (fields.size() < 3)
            continue;
        entries.append({ fields[0], fields[1].toInt() != 0, fields[2].toInt() != 0 });
    }
    return entries;
}

QString autorun::format(const QList<autorun_entry>& entries)
{
    QStringList parts;
    for (const autorun_entry& e : entries)
        parts << QStringLiteral("%1;%2;%3").arg(e.file).arg(e.enabled ? 1 : 0).arg(e.type ? 1 : 0);
    return parts.join(QStringLiteral(";;"));
}

void autorun::load(QSettings& settings)
{
    // An unquoted value with commas comes back from the INI file as a list.
    const QVariant value = settings.value(list_key);
    const QString text = value.type() == QVariant::StringList ? value.toStringList().join(QLatin1Char(','))
                                                               : value.toString();
    m_entries = parse(text);
}

void autorun::save(QSettings& settings) const
{
    settings.setValue(list_key, format(m_entries));
}

bool autorun::run() const
{
    for (const autorun_entry& e : m_entries) {
        if (!m_run || !m_run(e.file))
            return false;
    }
    return true;
}

} // namespace scripting
