#include "ui/videoplayer.h"

#include "ui/resource_init.h"
#include "ui/videowidget.h"

#include <QAction>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QMediaMetaData>
#include <QToolBar>
#include <QVBoxLayout>

namespace {

// A positive decimal number, or -1 for "the stream's".
qint32 dimension(const param_list& params, const QString& key)
{
    bool ok = false;
    const int value = params.value(key).toInt(&ok);
    return ok && value > 0 ? value : -1;
}

} // namespace

videoplayer::videoplayer(QWidget* parent)
    : QDialog(parent)
{
    init_ui_resources();
    setObjectName(QStringLiteral("videoplayer"));

    m_toolbar = new QToolBar(this);
    m_toolbar->setObjectName(QStringLiteral("toolbar"));
    m_pause = m_toolbar->addAction(QString());
    m_pause->setObjectName(QStringLiteral("btn_pause"));
    m_mute = m_toolbar->addAction(QString());
    m_mute->setObjectName(QStringLiteral("btn_mute"));
    m_autoclose = m_toolbar->addAction(QString());
    m_autoclose->setObjectName(QStringLiteral("btn_autoclose"));
    for (QAction* a : { m_pause, m_mute, m_autoclose })
        a->setCheckable(true);

    m_video = new videowidget(this);
    m_video->setObjectName(QStringLiteral("video"));
    // Until the first picture comes, the logo stands in the middle of the dark area.
    m_video->setStyleSheet(QStringLiteral("background: url(:/icn/logo) #333 no-repeat center;\n"));
    m_video->setAttribute(Qt::WA_StyledBackground);

    m_status = new QLabel(status_text(QMediaPlayer::NoMedia), this);
    m_status->setObjectName(QStringLiteral("status"));
    // A long error text must neither widen the window nor change the picture's height.
    m_status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_status->setContentsMargins(6, 3, 6, 3);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_toolbar);
    layout->addWidget(m_video, 1);
    layout->addWidget(m_status);

    m_player = new QMediaPlayer(this);
    m_player->setVideoOutput(m_video);

    connect(m_player, &QMediaPlayer::bufferStatusChanged, this, &videoplayer::player_bufferStatusChanged);
    connect(m_player, qOverload<QMediaPlayer::Error>(&QMediaPlayer::error), this, &videoplayer::player_error);
    connect(m_player, &QMediaPlayer::mediaStatusChanged, this, &videoplayer::player_mediaStatusChanged);
    connect(m_video, &videowidget::fullscreen_toggle_requested, this, &videoplayer::video_fullscreen_toggle_requested);
    connect(m_pause, &QAction::toggled, this, &videoplayer::btn_pause_toggled);
    connect(m_mute, &QAction::toggled, this, &videoplayer::btn_mute_toggled);
    connect(m_autoclose, &QAction::toggled, this, &videoplayer::btn_autoclose_toggled);

    retranslate();
    setWindowTitle(tr("Video player"));
    resize(640, 480);
}

videoplayer::~videoplayer() = default;

void videoplayer::play(const QUrl& url, const param_list& params)
{
    m_width = dimension(params, QStringLiteral("width"));
    m_height = dimension(params, QStringLiteral("height"));
    m_fullscreen = params.contains(QStringLiteral("fullscreen"));
    if (params.contains(QStringLiteral("title")))
        setWindowTitle(params.value(QStringLiteral("title")));
    m_mute->setChecked(params.contains(QStringLiteral("mute")));
    m_autoclose->setChecked(params.contains(QStringLiteral("autoclose")));

    show();
    fit_picture(QSize(m_width, m_height));
    set_fullscreen(m_fullscreen);

    m_player->setMedia(url);
    m_player->play();
}

QString videoplayer::status_text(QMediaPlayer::MediaStatus status)
{
    switch (status) {
    case QMediaPlayer::UnknownMediaStatus: return tr("Unknown state");
    case QMediaPlayer::NoMedia: return tr("No media");
    case QMediaPlayer::LoadingMedia: return tr("Loading...");
    case QMediaPlayer::LoadedMedia: return tr("Loaded");
    case QMediaPlayer::StalledMedia: return tr("Stalled");
    case QMediaPlayer::BufferingMedia: return tr("Buffering...");
    case QMediaPlayer::BufferedMedia: return tr("Playing");
    case QMediaPlayer::EndOfMedia: return tr("Ended");
    case QMediaPlayer::InvalidMedia: return tr("Invalid media");
    }
    return tr("Unknown state");
}

void videoplayer::player_bufferStatusChanged(int percentFilled)
{
    const QMediaPlayer::MediaStatus status = m_player->mediaStatus();
    if (status == QMediaPlayer::BufferingMedia || status == QMediaPlayer::StalledMedia)
        m_status->setText(QStringLiteral("%1 %2%").arg(status_text(status)).arg(percentFilled));
}

void videoplayer::player_error(QMediaPlayer::Error error)
{
    m_status->setText(m_player->errorString());
}

void videoplayer::player_mediaStatusChanged(QMediaPlayer::MediaStatus status)
{
    m_status->setText(status_text(status));
    const QVariant resolution = m_player->metaData(QMediaMetaData::Resolution);
    if (status != QMediaPlayer::EndOfMedia && m_player->availableMetaData().contains(QMediaMetaData::Resolution)
        && resolution.type() == QVariant::Size && m_width == -1 && m_height == -1)
        fit_picture(resolution.toSize());
    if (status == QMediaPlayer::EndOfMedia && m_autoclose_on)
        close();
}

void videoplayer::video_fullscreen_toggle_requested()
{
    set_fullscreen(m_normal_state);
}

void videoplayer::btn_pause_toggled(bool checked)
{
    if (checked)
        m_player->pause();
    else
        m_player->play();
}

void videoplayer::btn_mute_toggled(bool checked)
{
    m_player->setMuted(checked);
}

void videoplayer::btn_autoclose_toggled(bool checked)
{
    m_autoclose_on = checked;
}

void videoplayer::keyPressEvent(QKeyEvent* event)
{
    // Escape closes rather than hides, so that the window goes with its player.
    if (event->key() == Qt::Key_Escape)
        close();
    else if (event->key() == Qt::Key_F)
        set_fullscreen(m_normal_state);
    else
        QDialog::keyPressEvent(event);
}

void videoplayer::closeEvent(QCloseEvent* event)
{
    m_player->stop();
    QDialog::closeEvent(event);
    deleteLater();
}

void videoplayer::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void videoplayer::fit_picture(const QSize& wanted)
{
    // The picture's present size is the layout's, which may not have run since the last change.
    layout()->activate();
    const QSize picture = m_video->size();
    const QSize target(wanted.width() > 0 ? wanted.width() : picture.width(),
        wanted.height() > 0 ? wanted.height() : picture.height());
    resize(size() - picture + target);
}

void videoplayer::set_fullscreen(bool wanted)
{
    if (wanted == !m_normal_state)
        return;
    m_toolbar->setVisible(!wanted);
    m_status->setVisible(!wanted);
    setWindowState(wanted ? Qt::WindowFullScreen : Qt::WindowNoState);
    m_normal_state = !wanted;
}

void videoplayer::retranslate()
{
    m_pause->setText(tr("Pause"));
    m_mute->setText(tr("Mute"));
    m_autoclose->setText(tr("Autoclose"));
}
