// The video player: the parameters of "play", a stream generated here from start to end, the failure of a
// file that isn't there or isn't a video, full screen and closing.
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
    {
        media = window->findChild<QMediaPlayer*>();
        status = window->findChild<QLabel*>("status");
        // Connected after the window's own slot: the label already holds the new text.
        QObject::connect(media, &QMediaPlayer::mediaStatusChanged, window, [this] { said << status->text(); });
        QObject::connect(media, qOverload<QMediaPlayer::Error>(&QMediaPlayer::error), window,
            [this] { said << status->text(); });
    }
    ~player_fixture() { delete window.data(); }

    QAction* action(const char* name) const { return window->findChild<QAction*>(name); }
    QWidget* video() const { return window->findChild<QWidget*>("video"); }

    QPointer<videoplayer> window;
    QMediaPlayer* media = nullptr;
    QLabel* status = nullptr;
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
    void full_screen_and_escape();

private:
    QTemporaryDir m_dir;
    QString m_stream; // 320x240, two seconds, Theora in Ogg
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
    make.start(gst, { "-q", "videotestsrc", "num-buffers=20", "!", "video/x-raw,width=320,height=240,framerate=10/1",
                        "!", "theoraenc", "!", "oggmux", "!", "filesink", "location=" + m_stream });
    QVERIFY(make.waitForFinished(60000));
    QCOMPARE(make.exitCode(), 0);
    QVERIFY(QFileInfo(m_stream).size() > 0);
}

void test_ui_videoplayer::parameters_data()
{
    QTest::addColumn<param_list>("params");
    QTest::addColumn<bool>("muted");
    QTest::addColumn<bool>("autoclose");
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("fullscreen");
    QTest::newRow("none") << param_list {} << false << false << "Video player" << false;
    QTest::newRow("flags by presence, even false")
        << param_list { { "mute", "false" }, { "autoclose", "no" }, { "fullscreen", "0" } } << true << true
        << "Video player" << true;
    QTest::newRow("title") << param_list { { "title", "Gate camera" } } << false << false << "Gate camera" << false;
}

void test_ui_videoplayer::parameters()
{
    QFETCH(param_list, params);
    QFETCH(bool, muted);
    QFETCH(bool, autoclose);
    QFETCH(QString, title);
    QFETCH(bool, fullscreen);
    player_fixture f;
    f.window->play(QUrl::fromLocalFile(m_dir.filePath("absent.ogv")), params);
    QVERIFY(f.window->isVisible());
    QCOMPARE(f.media->isMuted(), muted);
    QCOMPARE(f.action("btn_mute")->isChecked(), muted);
    QCOMPARE(f.action("btn_autoclose")->isChecked(), autoclose);
    QCOMPARE(f.window->windowTitle(), title);
    QCOMPARE(f.window->isFullScreen(), fullscreen);
    QCOMPARE(f.window->findChild<QToolBar*>()->isHidden(), fullscreen);
}

void test_ui_videoplayer::stream_plays_to_its_end_data()
{
    QTest::addColumn<param_list>("params");
    QTest::addColumn<QSize>("picture");
    QTest::addColumn<bool>("closes");
    QTest::newRow("the stream's size") << param_list {} << QSize(320, 240) << false;
    QTest::newRow("both sides given") << param_list { { "width", "400" }, { "height", "300" } } << QSize(400, 300)
                                      << false;
    QTest::newRow("autoclose") << param_list { { "autoclose", "" } } << QSize(320, 240) << true;
}

void test_ui_videoplayer::stream_plays_to_its_end()
{
    QFETCH(param_list, params);
    QFETCH(QSize, picture);
    QFETCH(bool, closes);
    player_fixture f;
    f.window->play(QUrl::fromLocalFile(m_stream), params);
    QTRY_VERIFY_WITH_TIMEOUT(f.said.contains("Playing"), media_wait_ms);
    QTRY_COMPARE(f.video()->size(), picture);
    QTRY_VERIFY_WITH_TIMEOUT(!f.window || f.said.contains("Ended"), media_wait_ms);
    if (closes) {
        QTRY_VERIFY(!f.window);
        return;
    }
    QVERIFY(f.said.indexOf("Playing") < f.said.indexOf("Ended"));
    QCOMPARE(f.status->text(), QStringLiteral("Ended"));
    QVERIFY(f.window->isVisible());
}

void test_ui_videoplayer::unplayable_media_keeps_the_window_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("contents");
    QTest::newRow("missing") << "absent.ogv" << QByteArray();
    QTest::newRow("not a video") << "noise.ogv" << QByteArray("OggS but nothing more").repeated(64);
}

void test_ui_videoplayer::unplayable_media_keeps_the_window()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, contents);
    const QString path = m_dir.filePath(file);
    if (!contents.isEmpty()) {
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(contents);
    }
    player_fixture f;
    // Given the width alone, the window keeps that size whatever the stream says.
    f.window->play(QUrl::fromLocalFile(path), { { "autoclose", "" }, { "width", "300" } });
    const int height = f.video()->height();
    QTRY_VERIFY_WITH_TIMEOUT(f.said.contains("Invalid media"), media_wait_ms);
    QVERIFY(f.window);
    QVERIFY(f.window->isVisible());
    QCOMPARE(f.video()->size(), QSize(300, height));
    // The player's own words about the failure reach the label too.
    if (f.media->error() != QMediaPlayer::NoError)
        QVERIFY(f.said.contains(f.media->errorString()));
}

void test_ui_videoplayer::full_screen_and_escape()
{
    player_fixture f;
    f.window->play(QUrl::fromLocalFile(m_dir.filePath("absent.ogv")), {});
    auto* toolbar = f.window->findChild<QToolBar*>();
    QTest::keyClick(f.window, Qt::Key_F);
    QVERIFY(f.window->isFullScreen());
    QVERIFY(toolbar->isHidden() && f.status->isHidden());
    QTest::mouseDClick(f.video(), Qt::LeftButton);
    QVERIFY(!f.window->isFullScreen());
    QVERIFY(toolbar->isVisible() && f.status->isVisible());
    QTest::keyClick(f.window, Qt::Key_Escape);
    QTRY_VERIFY(!f.window);
}

QTEST_MAIN(test_ui_videoplayer)
#include "test_ui_videoplayer.moc"
