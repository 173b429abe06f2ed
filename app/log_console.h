#pragma once

#include "scripting/console.h"

#include <QHash>

class core;

// The console of a run without windows: what scripts show goes to the log as plain text,
// so standard output carries it.
class log_console final : public scripting::console
{
public:
    explicit log_console(core& c);

    void append(const QString& html, bool replace_last) override;
    void append_error(const QString& text, bool replace_last) override;
    void show_input(const QString& line) override;
    void set_input(const QString& line) override {}
    void status(const QUuid& ident, uint n, size_t total, const QString& line) override {}
    void wait(const std::function<bool()>& condition, const QString& message, bool replace_last,
        animation kind) override;
    void clear() override {}
    void set_mono_font(bool mono) override {}
    void remember_line(const QUuid& ident, const QString& text) override { m_lines.insert(ident, text); }
    QString line_of(const QUuid& ident) const override { return m_lines.value(ident); }

private:
    void log(const QString& text);

    core& m_core;
    QHash<QUuid, QString> m_lines;
};
