#include "ui/splash.h"

#include <QImageReader>
#include <QPainter>

#include "diagnostics/blackbox.h"
#include "ui/resource_init.h"

namespace
{

const QSize artwork_size(480, 300);
// The dark band at the bottom of the artwork that carries the stage.
constexpr int band_top = 244;

} // namespace

splash::splash()
    : QSplashScreen(artwork(), Qt::WindowStaysOnTopHint)
{
    setObjectName(QStringLiteral("splash"));
}

QPixmap splash::artwork()
{
    init_ui_resources();
    QImageReader reader(QStringLiteral(":/arts/splash"));
    reader.setScaledSize(artwork_size);
    const QImage image = reader.read();
    if (!image.isNull())
        return QPixmap::fromImage(image);
    write_sub("ui", "splash", blackbox::warning, "splash artwork unreadable (%s), plain panel used",
        qUtf8Printable(reader.errorString()));
    QPixmap plain(artwork_size);
    plain.fill(QColor(0x2c, 0x3e, 0x50));
    return plain;
}

void splash::set_stage(const QString& text, int number, int total)
{
    m_text = text;
    m_number = number;
    m_total = total;
    showMessage(tr("Loading: %1").arg(text));
}

void splash::drawContents(QPainter* painter)
{
    const QRect area = rect();
    const QRect band(area.left() + 16, band_top, area.width() - 32, area.bottom() - band_top);
    painter->setRenderHint(QPainter::Antialiasing);

    if (m_total > 0) {
        const int done = band.width() * qBound(0, m_number, m_total) / m_total;
        painter->fillRect(QRect(band.left(), band_top + 8, band.width(), 3), QColor(0x34, 0x49, 0x5e));
        painter->fillRect(QRect(band.left(), band_top + 8, done, 3), QColor(0x2e, 0x86, 0xde));
    }

    QFont font(QStringLiteral("Arial"));
    font.setPixelSize(13);
    painter->setFont(font);
    painter->setPen(QColor(0xec, 0xf0, 0xf1));
    const QRect text_area = band.adjusted(0, 14, 0, 0);
    painter->drawText(text_area, Qt::AlignLeft | Qt::AlignVCenter, message());
    if (m_total > 0) {
        painter->setPen(QColor(0xaa, 0xb7, 0xc4));
        painter->drawText(
            text_area, Qt::AlignRight | Qt::AlignVCenter, QStringLiteral("%1 / %2").arg(m_number).arg(m_total));
    }
}
