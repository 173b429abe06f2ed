#include "ui/port_setup.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

port_setup::port_setup(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("port_setup"));

    l_info = new QLabel(this);
    l_info->setObjectName(QStringLiteral("l_info"));
    l_info->setWordWrap(true);
    group = new QGroupBox(this);
    group->setObjectName(QStringLiteral("group"));
    o_default = new QRadioButton(group);
    o_default->setObjectName(QStringLiteral("o_default"));
    l_default = new QLabel(group);
    l_default->setObjectName(QStringLiteral("l_default"));
    o_user = new QRadioButton(group);
    o_user->setObjectName(QStringLiteral("o_user"));
    i_port = new QSpinBox(group);
    i_port->setObjectName(QStringLiteral("i_port"));
    i_port->setRange(1, 65535);

    auto* grid = new QGridLayout(group);
    grid->addWidget(o_default, 0, 0);
    grid->addWidget(l_default, 0, 1);
    grid->addWidget(o_user, 1, 0);
    grid->addWidget(i_port, 1, 1);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(i_port, QOverload<int>::of(&QSpinBox::valueChanged), this, &port_setup::on_i_port_valueChanged);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(l_info);
    layout->addWidget(group);
    layout->addWidget(buttons);
    retranslate();
}

void port_setup::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void port_setup::retranslate()
{
    setWindowTitle(tr("Port selection"));
    o_default->setText(tr("Default"));
    o_user->setText(tr("Custom"));
}

int port_setup::ask(const QString& text, quint16 default_port, quint16 current_port, bool use_default)
{
    prepare(text, default_port, current_port, use_default);
    return exec();
}

void port_setup::prepare(const QString& text, quint16 default_port, quint16 current_port, bool use_default)
{
    l_info->setText(text);
    l_default->setText(QString::number(default_port));
    // The value first: setting it checks "Custom", and the choice below must win.
    i_port->setValue(current_port);
    (use_default ? o_default : o_user)->setChecked(true);
}

int port_setup::port() const
{
    return o_default->isChecked() ? 0 : i_port->value();
}

void port_setup::on_i_port_valueChanged(int i)
{
    Q_UNUSED(i)
    o_user->setChecked(true);
}
