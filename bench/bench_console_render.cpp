// What one update of the console costs once its output is long: the whole buffer is set
// on the output again at each update, also at each frame of a wait's animation.
//   bench_console_render [lines]     (default 5000)
#include "ui/cmdline.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTextEdit>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int count = argc > 1 ? std::max(1, atoi(argv[1])) : 5000;
    QTemporaryDir dir;
    QSettings settings(dir.filePath("ov.config"), QSettings::IniFormat);
    cmdline console(settings);
    console.resize(900, 600);
    console.show();

    // What a long session shows: typed lines, the interpreter's output, errors.
    for (int i = 0; i < count; ++i) {
        switch (i % 3) {
        case 0: console.show_input(QStringLiteral("print line %1 of the session").arg(i)); break;
        case 1:
            console.append(
                QStringLiteral("<div style='font-style: italic; color: green;'>line %1 of the session</div>").arg(i),
                false);
            break;
        default:
            console.append_error(QStringLiteral("Line %1, error \"Unknown command: x\"").arg(i), false);
            break;
        }
    }

    auto* output = console.findChild<QTextEdit*>(QStringLiteral("output"));
    std::vector<double> times;
    for (int round = 0; round < 7; ++round) {
        // One frame of an animation: only the last line changes, the whole buffer renders.
        console.buffer().append(
            cmd_buffer_controller::frame_html(QStringLiteral("Executing..."), QString::number(round)), round > 0);
        QElapsedTimer clock;
        clock.start();
        console.buffer_updated();
        app.processEvents();
        times.push_back(double(clock.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    std::printf("console re-render, %d lines: median %.1f ms, min %.1f ms, max %.1f ms (%d blocks)\n", count,
        times[times.size() / 2], times.front(), times.back(), output->document()->blockCount());
    return 0;
}
