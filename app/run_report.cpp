#include "app/run_report.h"

#include <QSaveFile>
#include <QStringList>

namespace {

QString csv_field(const QString& text)
{
    // A field that starts like a formula would be run by a spreadsheet: a quote keeps it text.
    static const QString formula_start = QStringLiteral("=+-@");
    QString field = text;
    if (!field.isEmpty() && formula_start.contains(field.at(0)))
        field.prepend(QLatin1Char('\''));
    if (field.contains(QLatin1Char(',')) || field.contains(QLatin1Char('"')) || field.contains(QLatin1Char('\n'))
        || field.contains(QLatin1Char('\r')) || field != text)
        return QLatin1Char('"') + QString(field).replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
    return field;
}

QStringList fields_of(const run_report::row& r)
{
    return { r.device, r.serial, r.mac, r.hardware, r.version_before, r.version_after, r.outcome,
        run_report::time_text(r.started), run_report::time_text(r.ended) };
}

} // namespace

QString run_report::time_text(const QDateTime& t)
{
    return t.isValid() ? t.toLocalTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")) : QString();
}

QString run_report::csv(const QList<row>& rows)
{
    // Fixed English names: the file is read by programs as much as by people.
    QString text = QStringLiteral("device,serial,mac,hardware,version_before,version_after,outcome,started,ended\r\n");
    for (const row& r : rows) {
        QStringList fields;
        for (const QString& f : fields_of(r))
            fields << csv_field(f);
        text += fields.join(QLatin1Char(',')) + QLatin1String("\r\n");
    }
    return text;
}

QString run_report::html(const QList<row>& rows, const QDateTime& made)
{
    const QStringList headers { tr("Device"), tr("Serial"), tr("MAC address"), tr("Hardware"), tr("Version before"),
        tr("Version after"), tr("Outcome"), tr("Started"), tr("Ended") };
    const QString title = tr("Firmware update report");
    QString text = QStringLiteral("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>%1</title>\n"
                                  "<style>body{font-family:sans-serif;font-size:10pt}"
                                  "table{border-collapse:collapse}th,td{border:1px solid #888;padding:2px 6px;"
                                  "text-align:left}th{background:#eee}</style></head>\n<body>\n<h1>%1</h1>\n")
                       .arg(title.toHtmlEscaped());
    text += QStringLiteral("<p>%1</p>\n").arg(tr("Made %1, %n devices", nullptr, rows.size()).arg(time_text(made)).toHtmlEscaped());
    text += QStringLiteral("<table>\n<tr>");
    for (const QString& h : headers)
        text += QStringLiteral("<th>%1</th>").arg(h.toHtmlEscaped());
    text += QStringLiteral("</tr>\n");
    for (const row& r : rows) {
        text += QStringLiteral("<tr>");
        for (const QString& f : fields_of(r))
            text += QStringLiteral("<td>%1</td>").arg(f.toHtmlEscaped());
        text += QStringLiteral("</tr>\n");
    }
    return text + QStringLiteral("</table>\n</body></html>\n");
}

bool run_report::write(const QString& path, const QList<row>& rows, QString* error)
{
    const bool as_html = path.endsWith(QLatin1String(".html"), Qt::CaseInsensitive);
    const QByteArray data = (as_html ? html(rows, QDateTime::currentDateTime()) : csv(rows)).toUtf8();
    // Written whole or not at all: a half report is worse than none.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}
