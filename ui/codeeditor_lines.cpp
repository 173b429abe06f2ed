#include "ui/codeeditor_lines.h"

#include "ui/codeeditor.h"

codeeditor_lines::codeeditor_lines(codeeditor* editor)
    : QWidget(editor)
    , m_editor(editor)
{
}

QSize codeeditor_lines::sizeHint() const
{
    return QSize(m_editor->margin_width(), 0);
}

void codeeditor_lines::paintEvent(QPaintEvent* event)
{
    m_editor->paint_margin(event);
}
