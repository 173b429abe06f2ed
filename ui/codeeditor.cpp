#include "ui/codeeditor.h"

#include "ui/codeeditor_lines.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <QPainter>
#include <QTextBlock>

#include <algorithm>

namespace {

constexpr int margin_padding = 4;
constexpr int bold_weight = 75;

QFont bold_copy(const QFont& font)
{
    QFont bold(font);
    bold.setWeight(bold_weight);
    return bold;
}

} // namespace

codeeditor::codeeditor(QWidget* parent)
    : QPlainTextEdit(parent)
    , m_margin(new codeeditor_lines(this))
{
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_margin_font = bold_copy(font());
    setLineWrapMode(QPlainTextEdit::NoWrap);
    connect(this, &QPlainTextEdit::blockCountChanged, this, &codeeditor::update_margin_width);
    connect(this, &QPlainTextEdit::updateRequest, this, &codeeditor::update_margin);
    update_margin_width();
}

QString codeeditor::marker(const QString& block_text)
{
    // The longer name first: "macro.record" must not pass for a run.
    static const std::pair<QString, QString> markers[] = {
        { QStringLiteral("macro.record"), QStringLiteral("🔴") },
        { QStringLiteral("macro.stop"), QStringLiteral("🟩") },
        { QStringLiteral("macro.run"), QStringLiteral("➡") },
    };
    for (const auto& [command, mark] : markers) {
        if (block_text.startsWith(command))
            return mark;
    }
    return QString();
}

int codeeditor::margin_width() const
{
    const int digits = QString::number(std::max(1, blockCount())).size();
    const QFontMetrics metrics(m_margin_font);
    // Room for the marker beside the number.
    return margin_padding * 2 + metrics.horizontalAdvance(QLatin1Char('9')) * digits
        + metrics.horizontalAdvance(QStringLiteral("🔴"));
}

void codeeditor::update_margin_width()
{
    setViewportMargins(margin_width(), 0, 0, 0);
}

void codeeditor::update_margin(const QRect& rect, int dy)
{
    if (dy != 0)
        m_margin->scroll(0, dy);
    else
        m_margin->update(0, rect.y(), m_margin->width(), rect.height());
    if (rect.contains(viewport()->rect()))
        update_margin_width();
}

void codeeditor::resizeEvent(QResizeEvent* event)
{
    QPlainTextEdit::resizeEvent(event);
    const QRect area = contentsRect();
    m_margin->setGeometry(QRect(area.left(), area.top(), margin_width(), area.height()));
}

void codeeditor::paint_margin(QPaintEvent* event)
{
    QPainter painter(m_margin);
    painter.fillRect(event->rect(), Qt::lightGray);
    painter.setFont(m_margin_font);
    const int width = m_margin->width() - margin_padding;
    const int line_height = QFontMetrics(m_margin_font).height();

    QTextBlock block = firstVisibleBlock();
    int top = qRound(blockBoundingGeometry(block).translated(contentOffset()).top());
    while (block.isValid() && top <= event->rect().bottom()) {
        const int bottom = top + qRound(blockBoundingRect(block).height());
        if (block.isVisible() && bottom >= event->rect().top()) {
            const QString mark = marker(block.text());
            if (!mark.isEmpty())
                painter.drawText(margin_padding, top, width, line_height, Qt::AlignLeft, mark);
            painter.setPen(Qt::black);
            painter.drawText(0, top, width, line_height, Qt::AlignRight, QString::number(block.blockNumber() + 1));
        }
        block = block.next();
        top = bottom;
    }
}

void codeeditor::toggle_comment()
{
    QTextCursor cursor = textCursor();
    QTextBlock first = document()->findBlock(cursor.selectionStart());
    const QTextBlock last = document()->findBlock(cursor.selectionEnd());
    const bool uncomment = first.text().startsWith(QLatin1Char('#'));

    QTextCursor edit(document());
    edit.beginEditBlock();
    for (QTextBlock block = first; block.isValid(); block = block.next()) {
        edit.setPosition(block.position());
        if (!uncomment)
            edit.insertText(QStringLiteral("#"));
        else if (block.text().startsWith(QLatin1Char('#')))
            edit.deleteChar();
        if (block == last)
            break;
    }
    edit.endEditBlock();
}

void codeeditor::change_font_size(int steps)
{
    QFont f = font();
    if (f.pointSizeF() > 0)
        f.setPointSizeF(std::max(4.0, f.pointSizeF() + steps));
    else
        f.setPixelSize(std::max(6, f.pixelSize() + steps));
    setFont(f);
    m_margin_font = bold_copy(f);
    update_margin_width();
    const QRect area = contentsRect();
    m_margin->setGeometry(QRect(area.left(), area.top(), margin_width(), area.height()));
    m_margin->update();
}

void codeeditor::keyPressEvent(QKeyEvent* event)
{
    if (event->modifiers() & Qt::ControlModifier) {
        switch (event->key()) {
        case Qt::Key_Slash: toggle_comment(); return;
        case Qt::Key_Equal:
        case Qt::Key_Plus: change_font_size(1); return;
        case Qt::Key_Minus: change_font_size(-1); return;
        default: break;
        }
    }
    QPlainTextEdit::keyPressEvent(event);
}
