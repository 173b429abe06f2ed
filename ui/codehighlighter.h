#pragma once

#include <QRegularExpression>
#include <QSyntaxHighlighter>
#include <QTextCharFormat>
#include <QVector>

// OVScript colours: comments, commands, named parameters, raw lines, assignments and
// variables. Rules apply in order, a later one painting over an earlier; no rule spans lines.
class codehighlighter final : public QSyntaxHighlighter
{
    Q_OBJECT
public:
    explicit codehighlighter(QTextDocument* parent);
    Q_DISABLE_COPY_MOVE(codehighlighter)

protected:
    void highlightBlock(const QString& text) override;

private:
    struct rule {
        QRegularExpression expression;
        QTextCharFormat format;
    };
    QVector<rule> m_rules;
};
