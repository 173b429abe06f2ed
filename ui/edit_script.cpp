#include "ui/edit_script.h"

#include "ui/codeeditor.h"
#include "ui/codehighlighter.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>

edit_script::edit_script(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("edit_script"));
    l_script_file = new QLabel(this);
    l_script_file->setObjectName(QStringLiteral("l_script_file"));
    l_script_file_name = new QLabel(this);
    l_script_file_name->setObjectName(QStringLiteral("l_script_file_name"));
    l_script_file_name->setTextInteractionFlags(Qt::TextSelectableByMouse);
    l_script = new QLabel(this);
    m_editor = new codeeditor(this);
    m_editor->setObjectName(QStringLiteral("code_editor"));
    l_script->setBuddy(m_editor);
    m_highlighter = new codehighlighter(m_editor->document());
    m_buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_buttons->setObjectName(QStringLiteral("buttonBox"));

    auto* layout = new QGridLayout(this);
    layout->addWidget(l_script_file, 0, 0);
    layout->addWidget(l_script_file_name, 0, 1);
    layout->addWidget(l_script, 1, 0, 1, 2);
    layout->addWidget(m_editor, 2, 0, 1, 2);
    layout->addWidget(m_buttons, 3, 0, 1, 2);
    layout->setColumnStretch(1, 1);

    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(this, &QDialog::accepted, this, [this] { emit done(m_name, contents()); });
    retranslate();
    resize(700, 520);
}

void edit_script::edit(const QString& name, const QString& contents)
{
    m_name = name;
    l_script_file_name->setText(name);
    m_editor->setPlainText(contents);
    retranslate();
}

QString edit_script::contents() const
{
    return m_editor->toPlainText();
}

void edit_script::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void edit_script::retranslate()
{
    setWindowTitle(tr("Script editing — %1").arg(QFileInfo(m_name).fileName()));
    l_script_file->setText(tr("Script file:"));
    l_script->setText(tr("Script:"));
}
