#pragma once

#include <QString>
#include <QUuid>

#include <functional>

namespace scripting {

// Where scripted work shows itself: the command console, or the log in a run without
// windows. Everything is called on the main thread.
class console
{
public:
    // How a wait animates its message.
    enum animation { waiting = 0, spinning = 1, scanning = 2 };

    virtual ~console() = default;

    // An HTML line; replace_last drops the last line first.
    virtual void append(const QString& html, bool replace_last) = 0;
    // A text in the error form.
    virtual void append_error(const QString& text, bool replace_last) = 0;
    // A line as the user typed it.
    virtual void show_input(const QString& line) = 0;
    // Puts a line into the input, for the user to complete and send.
    virtual void set_input(const QString& line) = 0;
    // The command now running: its number among total, and its line.
    virtual void status(const QUuid& ident, uint n, size_t total, const QString& line) = 0;
    // Returns once condition no longer holds, the event loop running meanwhile and the
    // message shown with its animation.
    virtual void wait(const std::function<bool()>& condition, const QString& message, bool replace_last,
        animation kind)
        = 0;
    virtual void clear() = 0;
    virtual void set_mono_font(bool mono) = 0;
    // Keeps the text of a line queued under ident, for messages about it.
    virtual void remember_line(const QUuid& ident, const QString& text) = 0;
    // The text of a line by its ident; empty when unknown.
    virtual QString line_of(const QUuid& ident) const = 0;

    // The text of an HTML fragment: blocks and <br> break lines, other tags go, entities are read.
    static QString plain_text(const QString& html);
};

} // namespace scripting
