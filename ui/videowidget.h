#pragma once

#include <QVideoWidget>

// The picture of the video player; a double click asks for full screen or back.
class videowidget final : public QVideoWidget
{
    Q_OBJECT
public:
    explicit videowidget(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(videowidget)

signals:
    void fullscreen_toggle_requested();

protected:
    void mouseDoubleClickEvent(QMouseEvent* event) override;
};
