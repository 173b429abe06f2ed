#pragma once

#include <QDialog>
#include <QMediaPlayer>
#include <QUrl>

#include "tasks/parameters.h"

class QAction;
class QLabel;
class QToolBar;
class videowidget;

// A window in which a script plays a stream, typically a camera's. It lives by itself and
// deletes itself once closed.
class videoplayer final : public QDialog
{
    Q_OBJECT
public:
    explicit videoplayer(QWidget* parent = nullptr);
    ~videoplayer() override;
    Q_DISABLE_COPY_MOVE(videoplayer)

    // Reads the parameters (width, height, fullscreen, title, mute, autoclose), shows the
    // window and starts playing. Flags take effect by their presence, whatever their value.
    void play(const QUrl& url, const param_list& params);

    // The label text of a media status.
    static QString status_text(QMediaPlayer::MediaStatus status);

private slots:
    void player_bufferStatusChanged(int percentFilled);
    void player_error(QMediaPlayer::Error error);
    void player_mediaStatusChanged(QMediaPlayer::MediaStatus status);
    void video_fullscreen_toggle_requested();
    void btn_pause_toggled(bool checked);
    void btn_mute_toggled(bool checked);
    void btn_autoclose_toggled(bool checked);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    // Resizes the window so that the picture gets this size; -1 keeps that side as it is.
    void fit_picture(const QSize& wanted);
    void set_fullscreen(bool wanted);
    void retranslate();

    QMediaPlayer* m_player = nullptr;
    videowidget* m_video = nullptr;
    QLabel* m_status = nullptr;
    QToolBar* m_toolbar = nullptr;
    QAction* m_pause = nullptr;
    QAction* m_mute = nullptr;
    QAction* m_autoclose = nullptr;

    qint32 m_width = -1;
    qint32 m_height = -1;
    bool m_fullscreen = false;
    bool m_normal_state = true;
    bool m_autoclose_on = false;
};
