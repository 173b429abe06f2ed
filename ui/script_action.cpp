#include "ui/script_action.h"

#include "ui/resource_viewer.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QEvent>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace
{
constexpr int icon_preview = 32;
}

script_action::script_action(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("script_action"));
    auto named = [](QWidget* w, const char* name) {
        w->setObjectName(QLatin1String(name));
        return w;
    };

    l_title = new QLabel(this);
    input_title = new QLineEdit(this);
    named(input_title, "input_title");
    l_icon_caption = new QLabel(this);
    l_icon = new QLabel(this);
    named(l_icon, "l_icon");
    l_icon->setFixedSize(icon_preview, icon_preview);
    icon_res_btn = new QPushButton(this);
    named(icon_res_btn, "icon_res_btn");
    icon_file_btn = new QPushButton(this);
    named(icon_file_btn, "icon_file_btn");
    uuid_btn = new QPushButton(this);
    named(uuid_btn, "uuid_btn");
    r_action = new QRadioButton(this);
    named(r_action, "r_action");
    r_macro = new QRadioButton(this);
    named(r_macro, "r_macro");
    r_script = new QRadioButton(this);
    named(r_script, "r_script");

    options = new QStackedWidget(this);
    list_actions = new QListView(options);
    named(list_actions, "list_actions");
    auto* opt_action = named(new QWidget(options), "opt_action");
    (new QVBoxLayout(opt_action))->addWidget(list_actions);
    auto* opt_macro = named(new QWidget(options), "opt_macro");
    input_macro = new QPlainTextEdit(opt_macro);
    named(input_macro, "input_macro");
    (new QVBoxLayout(opt_macro))->addWidget(input_macro);
    auto* opt_script = named(new QWidget(options), "opt_script");
    input_script_file = new QLineEdit(opt_script);
    named(input_script_file, "input_script_file");
    btn_select_script = new QPushButton(opt_script);
    named(btn_select_script, "btn_select_script");
    auto* script_row = new QHBoxLayout(opt_script);
    script_row->addWidget(input_script_file);
    script_row->addWidget(btn_select_script);
    script_row->setAlignment(Qt::AlignTop);
    options->addWidget(opt_action);
    options->addWidget(opt_macro);
    options->addWidget(opt_script);
    connect(r_action, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            options->setCurrentIndex(0);
    });
    connect(r_macro, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            options->setCurrentIndex(1);
    });
    connect(r_script, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            options->setCurrentIndex(2);
    });

    connect(uuid_btn, &QPushButton::clicked, this, &script_action::on_uuid_btn_clicked);
    connect(icon_file_btn, &QPushButton::clicked, this, &script_action::on_icon_file_btn_clicked);
    connect(icon_res_btn, &QPushButton::clicked, this, &script_action::on_icon_res_btn_clicked);
    connect(btn_select_script, &QPushButton::clicked, this, &script_action::on_btn_select_script_clicked);

    auto* icon_row = new QHBoxLayout;
    icon_row->addWidget(l_icon);
    icon_row->addWidget(icon_res_btn);
    icon_row->addWidget(icon_file_btn);
    icon_row->addStretch();
    icon_row->addWidget(uuid_btn);
    auto* mode_row = new QHBoxLayout;
    mode_row->addWidget(r_action);
    mode_row->addWidget(r_macro);
    mode_row->addWidget(r_script);
    mode_row->addStretch();
    auto* form = new QFormLayout;
    form->addRow(l_title, input_title);
    form->addRow(l_icon_caption, icon_row);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &script_action::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addLayout(mode_row);
    layout->addWidget(options);
    layout->addWidget(buttons);
    retranslate();
    resize(520, 420);
}

void script_action::set_commands(QAbstractItemModel* commands)
{
    list_actions->setModel(commands);
}

void script_action::prepare(const QString& title, const QVariant& tag, const QString& icon, const QString& action_title,
    uint mode, const QString& value)
{
    setWindowTitle(title);
    m_tag = tag;
    set_icon(icon);
    input_title->setText(action_title);
    input_macro->clear();
    input_script_file->clear();
    list_actions->setCurrentIndex({});
    uuid_btn->setEnabled(!tag.toString().isEmpty());
    switch (mode) {
    case 0:
        r_action->setChecked(true);
        if (QAbstractItemModel* m = list_actions->model()) {
            const QModelIndexList found = m->match(m->index(0, 0), Qt::UserRole, value, 1, Qt::MatchExactly);
            if (!found.isEmpty())
                list_actions->setCurrentIndex(found.first());
        }
        break;
    case 1:
        r_macro->setChecked(true);
        input_macro->setPlainText(value);
        break;
    default:
        r_script->setChecked(true);
        input_script_file->setText(value);
        break;
    }
    options->setCurrentIndex(r_action->isChecked() ? 0 : r_macro->isChecked() ? 1 : 2);
}

void script_action::accept()
{
    uint mode = 2;
    QString value = input_script_file->text();
    if (r_action->isChecked()) {
        mode = 0;
        value = list_actions->currentIndex().data(Qt::UserRole).toString();
    } else if (r_macro->isChecked()) {
        mode = 1;
        value = input_macro->toPlainText();
    }
    emit done(m_tag, m_icon, input_title->text(), mode, value);
    QDialog::accept();
}

void script_action::on_uuid_btn_clicked()
{
    QApplication::clipboard()->setText(m_tag.toString());
}

void script_action::on_icon_file_btn_clicked()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Select icon file"), QString(), tr("%1 (*.gif *.png *.jpg *.ico *.bmp *.svg)").arg(tr("All images")));
    if (!file.isEmpty())
        set_icon(file);
}

void script_action::on_icon_res_btn_clicked()
{
    if (!m_resources)
        m_resources = new resource_viewer(this);
    if (m_resources->exec() == QDialog::Accepted && !m_resources->selected().isEmpty())
        set_icon(m_resources->selected());
}

void script_action::on_btn_select_script_clicked()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Select script file"), QString(), tr("%1 (*.script *.ovscript *.lua)").arg(tr("All scripts")));
    if (!file.isEmpty())
        input_script_file->setText(file);
}

void script_action::set_icon(const QString& path)
{
    m_icon = path;
    QPixmap picture = QIcon(path).pixmap(icon_preview, icon_preview);
    if (picture.isNull())
        picture = QIcon(QStringLiteral(":/svg/question")).pixmap(icon_preview, icon_preview);
    l_icon->setPixmap(picture);
}

void script_action::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void script_action::retranslate()
{
    l_title->setText(tr("Title:"));
    l_icon_caption->setText(tr("Icon:"));
    icon_res_btn->setText(tr("Resource..."));
    icon_file_btn->setText(tr("File..."));
    uuid_btn->setText(tr("Copy UUID"));
    r_action->setText(tr("Action"));
    r_macro->setText(tr("Macro"));
    r_script->setText(tr("Script"));
    btn_select_script->setText(tr("Select..."));
}
