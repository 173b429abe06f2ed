#include "ui/codehighlighter.h"

namespace {

QTextCharFormat coloured(Qt::GlobalColor colour, int weight = QFont::Normal)
{
    QTextCharFormat format;
    format.setForeground(colour);
    format.setFontWeight(weight);
    return format;
}

} // namespace

codehighlighter::codehighlighter(QTextDocument* parent)
    : QSyntaxHighlighter(parent)
{
    m_rules = {
        { QRegularExpression(QStringLiteral("^\\s*\\#.*")), coloured(Qt::darkGray) },
        { QRegularExpression(QStringLiteral("^\\s*(?:[@?\\w\\/]+\\.?)*")), coloured(Qt::blue, 75) },
        { QRegularExpression(QStringLiteral("-{2}\\w+\\=(?:([\"']).*?\\1|\\w+)")), coloured(Qt::darkGray) },
        { QRegularExpression(QStringLiteral("^\\s*\\^.*")), coloured(Qt::darkGreen) },
        { QRegularExpression(QStringLiteral("(?:^\\s*\\w+\\s*=\\s*\\S+|\\$\\{\\w+\\})")), coloured(Qt::darkCyan) },
    };
}

void codehighlighter::highlightBlock(const QString& text)
{
    for (const rule& r : qAsConst(m_rules)) {
        QRegularExpressionMatchIterator it = r.expression.globalMatch(text);
        while (it.hasNext()) {
            const QRegularExpressionMatch m = it.next();
            setFormat(m.capturedStart(), m.capturedLength(), r.format);
        }
    }
    setCurrentBlockState(0);
}
