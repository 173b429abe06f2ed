#include "tasks/file_filters.h"

#include <QCoreApplication>
#include <QStringList>

namespace tasks {

namespace {

QString description(file_kind kind)
{
    switch (kind) {
    case file_kind::all_scripts: return QCoreApplication::translate("file_filters", "All supported scripts");
    case file_kind::orvane_scripts: return QCoreApplication::translate("file_filters", "Orvane scripts");
    case file_kind::lua_scripts: return QCoreApplication::translate("file_filters", "Lua scripts");
    case file_kind::csv: return QCoreApplication::translate("file_filters", "CSV");
    case file_kind::configuration: return QCoreApplication::translate("file_filters", "Configuration file");
    }
    return {};
}

QString patterns(file_kind kind)
{
    switch (kind) {
    case file_kind::all_scripts: return QStringLiteral("*.script *.ovscript *.lua");
    case file_kind::orvane_scripts: return QStringLiteral("*.script *.ovscript");
    case file_kind::lua_scripts: return QStringLiteral("*.lua");
    case file_kind::csv: return QStringLiteral("*.csv");
    case file_kind::configuration: return QStringLiteral("*.cfg");
    }
    return {};
}

} // namespace

QString file_filters(const QVector<file_kind>& kinds)
{
    QStringList filters;
    for (file_kind kind : kinds) {
        const QString pattern = patterns(kind);
        if (!pattern.isEmpty())
            filters << QStringLiteral("%1 (%2)").arg(description(kind), pattern);
    }
    return filters.join(QStringLiteral(";;"));
}

} // namespace tasks
