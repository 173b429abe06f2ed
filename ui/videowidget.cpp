#include "ui/videowidget.h"

#include <QMouseEvent>

videowidget::videowidget(QWidget* parent)
    : QVideoWidget(parent)
{
}

void videowidget::mouseDoubleClickEvent(QMouseEvent* event)
{
    emit fullscreen_toggle_requested();
    event->accept();
}
