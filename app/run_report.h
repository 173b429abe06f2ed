#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QList>
#include <QString>

// The handover record of a run: one row per device, written as CSV, or as a printable
// HTML table when the file name ends in ".html".
class run_report
{
    Q_DECLARE_TR_FUNCTIONS(run_report)
public:
    struct row
    {
        QString device;
        QString serial;
        QString mac;
        QString hardware;
        QString version_before;
        QString version_after;
        QString outcome;
        QDateTime started;
        QDateTime ended;
    };

    // Writes the rows; false, with the reason in error, when the file can't be written.
    static bool write(const QString& path, const QList<row>& rows, QString* error);
    // The CSV form: a header line, then one line per row, fields quoted where they need it.
    static QString csv(const QList<row>& rows);
    // The HTML form, with its title and the time it was made.
    static QString html(const QList<row>& rows, const QDateTime& made);
    // Times in both forms: local, to the second, sortable.
    static QString time_text(const QDateTime& t);
};
