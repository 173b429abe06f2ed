#pragma once

// A console that keeps what it is shown, for tests of scripted output. Header-only: the shared support library
// doesn't link the scripting library.
#include "scripting/console.h"
#include "scripting/wait.h"

#include <QHash>
#include <QStringList>

struct recording_console final : scripting::console
{
    void append(const QString& html, bool replace_last) override
    {
        if (replace_last && !lines.isEmpty())
            lines.removeLast();
        lines << html;
    }
    void append_error(const QString& text, bool replace_last) override { append("error: " + text, replace_last); }
    void show_input(const QString& line) override { inputs << line; }
    void set_input(const QString& line) override { offered << line; }
    void status(const QUuid&, uint, size_t, const QString&) override {}
    void wait(const std::function<bool()>& condition, const QString& message, bool, animation kind) override
    {
        waits << QStringLiteral("%1 (%2)").arg(message).arg(int(kind));
        scripting::wait_while(condition, 100);
    }
    void clear() override { lines.clear(); }
    void set_mono_font(bool mono) override { fonts << mono; }
    void remember_line(const QUuid& ident, const QString& text) override { known.insert(ident, text); }
    QString line_of(const QUuid& ident) const override { return known.value(ident); }

    // What it was shown as plain text, errors marked.
    QStringList plain() const
    {
        QStringList out;
        for (const QString& html : lines)
            out << plain_text(html);
        return out;
    }

    QStringList lines;
    QStringList inputs;
    QStringList offered;
    QStringList waits;
    QList<bool> fonts;
    QHash<QUuid, QString> known;
};
