#pragma once

#include "scripting/commands.h"
#include "scripting/console.h"
#include "ui/cmd_buffer_controller.h"
#include "ui/cmd_history_controller.h"

#include <QHash>
#include <QMainWindow>
#include <QStringList>
#include <QUuid>

class QAction;
class QLabel;
class QLineEdit;
class QRadioButton;
class QSettings;
class QTextEdit;
class QToolBar;

// The command console: OVScript or Lua lines typed in, their output as HTML, animated while
// a command waits, the running command and the macro state below.
class cmdline final : public QMainWindow, public scripting::console
{
    Q_OBJECT
public:
    // Where the chosen language of the input is kept.
    static inline const QString script_type_key = QStringLiteral("Console/script_type");

    explicit cmdline(QSettings& settings, QWidget* parent = nullptr);
    ~cmdline() override;
    Q_DISABLE_COPY_MOVE(cmdline)

    void append(const QString& html, bool replace_last) override;
    void append_error(const QString& text, bool replace_last) override;
    void show_input(const QString& line) override;
    void set_input(const QString& line) override;
    // Shows the running command: its number among total and its line.
    void status(const QUuid& ident, uint n, size_t total, const QString& line) override;
    // Animates message while condition holds; the event loop runs meanwhile.
    void wait(
        const std::function<bool()>& condition, const QString& message, bool replace_last, animation kind) override;
    // Clears the input, the output and the lines entered so far.
    void clear() override;
    void set_mono_font(bool mono) override;
    void remember_line(const QUuid& ident, const QString& text) override;
    QString line_of(const QUuid& ident) const override;

    // No command runs: "Ready", and the input looks as usual.
    void set_ready();
    void macro_playback(bool on, const QString& name);
    void macro_recording(bool on, const QString& name);
    // Every line entered since the last clear, in order.
    const QStringList& entered_lines() const { return m_entered; }
    // Writes the lines entered, one a line in UTF-8; the error text on failure, empty on success.
    QString save_script(const QString& file) const;

    cmd_buffer_controller& buffer() { return m_buffer; }
    cmd_history_controller& history() { return m_history; }

signals:
    void input(QUuid ident, scripting::script_type type, QString line);
    void script_requested(QString file);

public slots:
    void on_input_returnPressed();
    void on_act_load_script_file_triggered();
    void on_act_save_script_file_triggered();
    void on_act_copy_output_triggered();
    void on_act_clear_triggered();
    void on_r_ovscript_toggled(bool checked);
    void on_r_lua_toggled(bool checked);
    void history_req();
    // Renders the buffer when it changed since the last rendering.
    void buffer_updated();

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    void render();
    // The file dialogs' filter of script files.
    static QString script_filter();
    // The input gets the keys back after a change of language.
    void type_on();
    QAction* make_action(const char* name, const char* icon, const char* shortcut);

    QSettings& m_settings;
    cmd_buffer_controller m_buffer;
    cmd_history_controller m_history;
    QHash<QUuid, QString> m_lines;
    QStringList m_entered;
    int m_wait_depth = 0; // waits inside waits share one animation
    // What the labels show, kept for a change of language.
    uint m_n = 0;
    size_t m_total = 0;
    bool m_running = false;
    enum { macro_none, macro_playing, macro_recording_on } m_macro_state = macro_none;
    QString m_macro_name;

    QTextEdit* m_output = nullptr;
    QLineEdit* m_input = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_line = nullptr;
    QLabel* m_macro = nullptr;
    QRadioButton* m_ovscript = nullptr;
    QRadioButton* m_lua = nullptr;
    QToolBar* m_tool_bar = nullptr;
    QAction* act_load_script_file = nullptr;
    QAction* act_save_script_file = nullptr;
    QAction* act_copy_output = nullptr;
    QAction* act_clear = nullptr;
};

Q_DECLARE_METATYPE(scripting::script_type)
