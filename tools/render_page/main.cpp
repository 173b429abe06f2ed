// Renders an HTML page (the handover report) to a PNG with Qt's own rich-text engine, so
// that a page can be looked at on a machine without a browser or a display.
//   orvane-render-page page.html picture.png [width]
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QTextDocument>

#include <cstdio>

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: orvane-render-page page.html picture.png [width]\n");
        return 2;
    }
    QFile page(args.at(1));
    if (!page.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "can't read %s\n", qPrintable(args.at(1)));
        return 1;
    }
    QTextDocument doc;
    doc.setHtml(QString::fromUtf8(page.readAll()));
    doc.setTextWidth(args.size() > 3 ? args.at(3).toInt() : 1100);
    QImage picture(doc.size().toSize(), QImage::Format_RGB32);
    picture.fill(Qt::white);
    QPainter painter(&picture);
    doc.drawContents(&painter);
    painter.end();
    if (!picture.save(args.at(2))) {
        std::fprintf(stderr, "can't write %s\n", qPrintable(args.at(2)));
        return 1;
    }
    return 0;
}
