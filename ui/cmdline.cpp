#include "ui/cmdline.h"

#include "scripting/wait.h"
#include "ui/resource_init.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QFile>
#include <QFileDialog>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QRadioButton>
#include <QSaveFile>
#include <QScrollBar>
#include <QSettings>
#include <QStatusBar>
#include <QTextEdit>
#include <QToolBar>
#include <QVBoxLayout>

namespace {

const QString busy_input_style
    = QStringLiteral("QLineEdit { background: rgb(255, 255, 230); selection-background-color: rgb(100, 80, 50); }");

} // namespace

cmdline::cmdline(QSettings& settings, QWidget* parent)
    : QMainWindow(parent)
    , m_settings(settings)
{
    init_ui_resources();
    qRegisterMetaType<scripting::script_type>("scripting::script_type");
    setObjectName(QStringLiteral("cmdline"));

    m_output = new QTextEdit(this);
    m_output->setObjectName(QStringLiteral("output"));
    m_output->setReadOnly(true);
    m_input = new QLineEdit(this);
    m_input->setObjectName(QStringLiteral("input"));
    m_ovscript = new QRadioButton(this);
    m_ovscript->setObjectName(QStringLiteral("r_ovscript"));
    m_lua = new QRadioButton(this);
    m_lua->setObjectName(QStringLiteral("r_lua"));

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(m_output);
    auto* input_row = new QHBoxLayout;
    input_row->addWidget(m_ovscript);
    input_row->addWidget(m_lua);
    input_row->addWidget(m_input, 1);
    layout->addLayout(input_row);
    setCentralWidget(central);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("status"));
    m_line = new QLabel(this);
    m_line->setObjectName(QStringLiteral("l_line"));
    m_macro = new QLabel(this);
    m_macro->setObjectName(QStringLiteral("l_macro"));
    statusBar()->addWidget(m_status);
    statusBar()->addWidget(m_line, 1);
    statusBar()->addPermanentWidget(m_macro);

    act_load_script_file = make_action("act_load_script_file", ":/icn/load", "Ctrl+O");
    act_save_script_file = make_action("act_save_script_file", ":/icn/save", "Ctrl+S");
    act_copy_output = make_action("act_copy_output", ":/icn/clipboard", "Ctrl+Shift+C");
    act_clear = make_action("act_clear", ":/icn/clear", "Ctrl+L");
    m_tool_bar = addToolBar(QString());
    m_tool_bar->setObjectName(QStringLiteral("toolBar"));
    m_tool_bar->addActions({ act_load_script_file, act_save_script_file, act_copy_output, act_clear });

    connect(act_load_script_file, &QAction::triggered, this, &cmdline::on_act_load_script_file_triggered);
    connect(act_save_script_file, &QAction::triggered, this, &cmdline::on_act_save_script_file_triggered);
    connect(act_copy_output, &QAction::triggered, this, &cmdline::on_act_copy_output_triggered);
    connect(act_clear, &QAction::triggered, this, &cmdline::on_act_clear_triggered);
    connect(m_input, &QLineEdit::returnPressed, this, &cmdline::on_input_returnPressed);
    connect(m_ovscript, &QRadioButton::toggled, this, &cmdline::on_r_ovscript_toggled);
    connect(m_lua, &QRadioButton::toggled, this, &cmdline::on_r_lua_toggled);

    m_input->installEventFilter(&m_history);
    connect(&m_history, &cmd_history_controller::history_prev, this, &cmdline::history_req);
    connect(&m_history, &cmd_history_controller::history_next, this, &cmdline::history_req);
    // Queued also from this thread: a burst of lines renders once, when the loop next runs.
    connect(&m_buffer, &cmd_buffer_controller::buffer_updated, this, &cmdline::buffer_updated, Qt::QueuedConnection);

    const auto type = scripting::script_type(m_settings.value(script_type_key, 0u).toUInt());
    (type == scripting::script_type::lua ? m_lua : m_ovscript)->setChecked(true);

    retranslate();
    set_ready();
    resize(760, 480);
}

cmdline::~cmdline()
{
    m_buffer.stop_animation();
}

QAction* cmdline::make_action(const char* name, const char* icon, const char* shortcut)
{
    auto* action = new QAction(QIcon(QLatin1String(icon)), QString(), this);
    action->setObjectName(QLatin1String(name));
    action->setShortcut(QKeySequence(QLatin1String(shortcut)));
    return action;
}

void cmdline::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QMainWindow::changeEvent(event);
}

void cmdline::retranslate()
{
    setWindowTitle(tr("Command line"));
    m_ovscript->setText(tr("OVScript"));
    m_lua->setText(tr("Lua"));
    m_tool_bar->setWindowTitle(tr("Console"));
    act_load_script_file->setText(tr("Load script file..."));
    act_save_script_file->setText(tr("Save script file..."));
    act_copy_output->setText(tr("Copy output"));
    act_clear->setText(tr("Clear"));
    if (m_running)
        m_status->setText(tr("Executing: %1 / %2").arg(m_n).arg(m_total));
    else
        m_status->setText(tr("Ready"));
    switch (m_macro_state) {
    case macro_none: m_macro->clear(); break;
    case macro_playing: m_macro->setText(tr("Macro playback: %1").arg(m_macro_name)); break;
    case macro_recording_on: m_macro->setText(tr("Recording macro: %1").arg(m_macro_name)); break;
    }
}

void cmdline::append(const QString& html, bool replace_last)
{
    m_buffer.append(html, replace_last);
}

void cmdline::append_error(const QString& text, bool replace_last)
{
    // Errors are plain text, and may quote a line with markup of its own.
    m_buffer.append(QStringLiteral("<div style='color: red;'>%1</div>").arg(text.toHtmlEscaped()), replace_last);
}

void cmdline::show_input(const QString& line)
{
    m_buffer.append(
        QStringLiteral("<div><span style='color: gray;'>$</span> <span style='font-weight: bold;'>%1</span></div>")
            .arg(line.toHtmlEscaped()),
        false);
}

void cmdline::set_input(const QString& line)
{
    m_input->setText(line);
    show();
    raise();
    activateWindow();
    m_input->setFocus();
}

void cmdline::status(const QUuid&, uint n, size_t total, const QString& line)
{
    m_running = true;
    m_n = n;
    m_total = total;
    m_status->setText(tr("Executing: %1 / %2").arg(n).arg(total));
    m_line->setText(line);
    m_input->setStyleSheet(busy_input_style);
}

void cmdline::set_ready()
{
    m_running = false;
    m_status->setText(tr("Ready"));
    m_line->clear();
    m_input->setStyleSheet(QString());
}

void cmdline::wait(const std::function<bool()>& condition, const QString& message, bool replace_last, animation kind)
{
    if (replace_last)
        m_buffer.remove_last();
    if (m_wait_depth++ == 0)
        m_buffer.start_animation(message, cmd_buffer_controller::kind(kind));
    scripting::wait_while(condition, cmd_buffer_controller::frame_ms);
    if (--m_wait_depth == 0)
        m_buffer.stop_animation();
}

void cmdline::clear()
{
    m_input->clear();
    m_buffer.clear();
    m_entered.clear();
    m_output->clear();
}

void cmdline::set_mono_font(bool mono)
{
    m_output->setFont(mono ? QFontDatabase::systemFont(QFontDatabase::FixedFont) : QFont());
}

void cmdline::remember_line(const QUuid& ident, const QString& text)
{
    m_lines.insert(ident, text);
}

QString cmdline::line_of(const QUuid& ident) const
{
    return m_lines.value(ident);
}

void cmdline::macro_playback(bool on, const QString& name)
{
    m_macro_state = on ? macro_playing : macro_none;
    m_macro_name = name;
    retranslate();
}

void cmdline::macro_recording(bool on, const QString& name)
{
    m_macro_state = on ? macro_recording_on : macro_none;
    m_macro_name = name;
    retranslate();
}

void cmdline::on_input_returnPressed()
{
    const QString text = m_input->text();
    m_input->clear();
    if (text.isEmpty())
        return;
    m_history.add(text);
    const QUuid ident = QUuid::createUuid();
    m_lines.insert(ident, text);
    m_entered << text;
    emit input(ident, m_ovscript->isChecked() ? scripting::script_type::ovscript : scripting::script_type::lua, text);
}

void cmdline::history_req()
{
    m_input->setText(m_history.current());
}

void cmdline::on_r_ovscript_toggled(bool checked)
{
    if (!checked)
        return;
    m_settings.setValue(script_type_key, uint(scripting::script_type::ovscript));
    type_on();
}

void cmdline::on_r_lua_toggled(bool checked)
{
    if (!checked)
        return;
    m_settings.setValue(script_type_key, uint(scripting::script_type::lua));
    type_on();
}

void cmdline::type_on()
{
    // Queued: a button chosen by the arrow keys takes the focus once it has been toggled.
    QMetaObject::invokeMethod(m_input, qOverload<>(&QWidget::setFocus), Qt::QueuedConnection);
}

QString cmdline::script_filter()
{
    return tr("%1 (*.script *.ovscript *.lua)").arg(tr("All scripts"));
}

void cmdline::on_act_load_script_file_triggered()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Select script file"), QString(), script_filter());
    if (!file.isEmpty())
        emit script_requested(file);
}

QString cmdline::save_script(const QString& file) const
{
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly))
        return out.errorString();
    for (const QString& line : m_entered)
        out.write(line.toUtf8() + '\n');
    if (!out.commit())
        return out.errorString();
    return QString();
}

void cmdline::on_act_save_script_file_triggered()
{
    const QString file = QFileDialog::getSaveFileName(
        this, tr("Save script file"), QString(), script_filter());
    if (file.isEmpty())
        return;
    const QString error = save_script(file);
    if (!error.isEmpty())
        QMessageBox::warning(this, tr("Script saving error"), tr("Unable to save script %1:\n%2").arg(file, error));
}

void cmdline::on_act_copy_output_triggered()
{
    render();
    QGuiApplication::clipboard()->setText(m_output->toPlainText());
}

void cmdline::on_act_clear_triggered()
{
    clear();
}

void cmdline::buffer_updated()
{
    if (m_buffer.take_changed())
        render();
}

void cmdline::render()
{
    m_output->setHtml(m_buffer.html());
    QScrollBar* bar = m_output->verticalScrollBar();
    bar->setValue(bar->maximum());
}
