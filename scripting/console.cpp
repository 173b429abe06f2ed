#include "scripting/console.h"

#include <QRegularExpression>
#include <QStringList>

namespace scripting {

QString console::plain_text(const QString& html)
{
    static const QRegularExpression breaks(
        QStringLiteral("<br\\s*/?>|</?div[^>]*>"), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    QString text = html;
    text.replace(breaks, QStringLiteral("\n"));
    text.remove(tag);
    text.replace(QLatin1String("&lt;"), QLatin1String("<"))
        .replace(QLatin1String("&gt;"), QLatin1String(">"))
        .replace(QLatin1String("&quot;"), QLatin1String("\""))
        .replace(QLatin1String("&#39;"), QLatin1String("'"))
        .replace(QLatin1String("&nbsp;"), QLatin1String(" "))
        .replace(QLatin1String("&amp;"), QLatin1String("&"));
    // Blocks that end where the next begins leave empty lines behind.
    QStringList lines = text.split(QLatin1Char('\n'));
    lines.removeAll(QString());
    return lines.join(QLatin1Char('\n'));
}

} // namespace scripting
