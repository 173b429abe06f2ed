// The video player: parameters of "play", a stream generated here played to its end, media that can't play.
#include "ui/videoplayer.h"

#include <QtTest>
#include <QtWidgets>

namespace {

constexpr int media_wait_ms = 30000;

// A player window and what its status label said, in order.
struct player_fixture
{
    player_fixture()
        : window(new videoplayer)
        , media(window->findChild<QMediaPlayer*>())
        , status(window->findChild<QLabel*>("status"))
    {
        // Connected after the window's own slots: the label already holds the new text.
        QObject::connect(media, &QMediaPlayer::mediaStatusChanged, window, [this] { said << status->text(); });
        QObject::connect(
            media, qOverload<QMediaPlayer::Error>(&QMediaPlayer::error), window, [this] { said << status->text(); });
    }
    ~player_fixture() { delete window.data(); }
    QWidget* video() const { return window->findChild<QWidget*>("video"); }

    QPointer<videoplayer> window;
    QMediaPlayer* media;
    QLabel* status;
    QStringList said;
};

} // namespace

class test_ui_videoplayer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void parameters_data();
    void parameters();
    void stream_plays_to_its_end_data();
    void stream_plays_to_its_end();
    void unplayable_media_keeps_the_window_data();
    void unplayable_media_keeps_the_window();

private:
    QTemporaryDir m_dir;
    QString m_stream; // 320x240, one second, Theora in Ogg
};

void test_ui_videoplayer::initTestCase()
{
    const QString gst = QStandardPaths::findExecutable("gst-launch-1.0");
    if (gst.isEmpty())
        QSKIP("gst-launch-1.0 (gstreamer1.0-tools) is not installed: no stream to play");
    if (QMediaPlayer().availability() != QMultimedia::Available)
        QSKIP("Qt Multimedia has no playback service (libqt5multimedia5-plugins)");
    m_stream = m_dir.filePath("test.ogv");
    QProcess make;
    make.start(gst,
        { "-q", "videotestsrc", "num-buffers=10", "!", "video/x-raw,width=320,height=240,framerate=10/1", "!",
            "theoraenc", "!", "oggmux", "!", "filesink", "location=" + m_stream });
    QVERIFY(make.waitForFinished(60000));
    QCOMPARE(make.exitCode(), 0);
}

void test_ui_videoplayer::parameters_data()
{
    QTest::addColumn<param_list>("params");
    QTest::addColumn<bool>("flags");
    QTest::addColumn<QString>("title");
    QTest::newRow("none") << param_list {} << false << "Video player";
    QTest::newRow("flags by presence, even false")
        << param_list { { "mute", "false" }, { "autoclose", "no" }, { "fullscreen", "0" }, { "title", "Gate" } } << true
        << "Gate";
}

void test_ui_videoplayer::parameters()
{
    QFETCH(param_list, params);
    QFETCH(bool, flags);
    player_fixture f;
    f.window->play(QUrl::fromLocalFile(m_dir.filePath("absent.ogv")), params);
    QVERIFY(f.window->isVisible());
    QTEST(f.window->windowTitle(), "title");
    QCOMPARE(f.media->isMuted(), flags);
    QCOMPARE(f.window->findChild<QAction*>("btn_mute")->isChecked(), flags);
    QCOMPARE(f.window->findChild<QAction*>("btn_autoclose")->isChecked(), flags);

    // Full screen by the parameter, F and a double click, each flipping it; the toolbar and label follow.
    auto* toolbar = f.window->findChild<QToolBar*>();
    for (const bool full : { flags, !flags, flags }) {
        QCOMPARE(f.window->isFullScreen(), full);
        QCOMPARE(toolbar->isHidden() && f.status->isHidden(), full);
        if (full == flags)
            QTest::keyClick(f.window, Qt::Key_F);
        else
            QTest::mouseDClick(f.video(), Qt::LeftButton);
    }
    QTest::keyClick(f.window, Qt::Key_Escape);
    QTRY_VERIFY(!f.window);
}

void test_ui_videoplayer::stream_plays_to_its_end_data()
{
    QTest::addColumn<param_list>("params");
    QTest::addColumn<QSize>("picture");
    QTest::newRow("the stream's size") << param_list {} << QSize(320, 240);
    QTest::newRow("both sides given") << param_list { { "width", "400" }, { "height", "300" } } << QSize(400, 300);
    QTest::newRow("autoclose") << param_list { { "autoclose", "" } } << QSize(320, 240);
}

void test_ui_videoplayer::stream_plays_to_its_end()
{
    QFETCH(param_list, params);
    QFETCH(QSize, picture);
    player_fixture f;
    f.window->play(QUrl::fromLocalFile(m_stream), params);
    QTRY_VERIFY_WITH_TIMEOUT(f.said.contains("Playing"), media_wait_ms);
    QTRY_COMPARE(f.video()->size(), picture);
    if (params.contains("autoclose")) {
        QTRY_VERIFY_WITH_TIMEOUT(!f.window, media_wait_ms);
        return;
    }
    QTRY_COMPARE_WITH_TIMEOUT(f.status->text(), QStringLiteral("Ended"), media_wait_ms);
    QVERIFY(f.said.indexOf("Playing") < f.said.indexOf("Ended"));
    QVERIFY(f.window->isVisible());
}

void test_ui_videoplayer::unplayable_media_keeps_the_window_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("not a video") << QByteArray("OggS but nothing more").repeated(64);
}

void test_ui_videoplayer::unplayable_media_keeps_the_window()
{
    QFETCH(QByteArray, contents);
    const QString path = m_dir.filePath(QTest::currentDataTag());
    QFile out(path);
    QVERIFY(contents.isEmpty() || (out.open(QIODevice::WriteOnly) && out.write(contents) == contents.size()));
    out.close();
    player_fixture f;
    // Given the width alone, the window keeps that size whatever the stream says.
    f.window->play(QUrl::fromLocalFile(path), { { "autoclose", "" }, { "width", "300" } });
    const int height = f.video()->height();
    QTRY_VERIFY_WITH_TIMEOUT(f.said.contains("Invalid media"), media_wait_ms);
    QVERIFY(f.window && f.window->isVisible());
    QCOMPARE(f.video()->size(), QSize(300, height));
    // The player's own words about the failure reach the label too.
    QVERIFY(f.media->error() == QMediaPlayer::NoError || f.said.contains(f.media->errorString()));
}

QTEST_MAIN(test_ui_videoplayer)
#include "test_ui_videoplayer.moc"
