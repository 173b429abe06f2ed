#include "ui/cmd_history_controller.h"

#include <QEvent>
#include <QKeyEvent>

cmd_history_controller::cmd_history_controller(QObject* parent)
    : QObject(parent)
{
}

void cmd_history_controller::add(const QString& line)
{
    if (m_items.isEmpty() || m_items.last() != line) {
        m_items << line;
        if (m_items.size() > max_items)
            m_items.removeFirst();
    }
    m_position = m_items.size();
}

bool cmd_history_controller::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Up) {
            if (m_position > 0)
                --m_position;
            emit history_prev();
        } else if (key == Qt::Key_Down) {
            if (m_position < m_items.size())
                ++m_position;
            emit history_next();
        }
    }
    return QObject::eventFilter(watched, event);
}
