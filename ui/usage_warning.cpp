#include "ui/usage_warning.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QVBoxLayout>

usage_warning::usage_warning(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("usage_warning"));
    setWindowTitle(tr("Warning"));
    setModal(true);

    auto* icon = new QLabel(this);
    icon->setObjectName(QStringLiteral("l_icon"));
    const int size = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning, nullptr, this).pixmap(size, size));
    icon->setAlignment(Qt::AlignTop);

    auto* text = new QLabel(this);
    text->setObjectName(QStringLiteral("l_text"));
    text->setTextFormat(Qt::PlainText);
    text->setWordWrap(true);
    text->setText(tr("If the device is working properly, then a firmware update is not required!\n\n"
                     "Do not turn off the power and Ethernet while updating the device!\n"
                     "If the device behaves unstable, if the power of the device is unstable, if the Ethernet "
                     "network is unstable, do not update the firmware of the device. If the update process fails, "
                     "the device will completely stop working!"));

    m_dont_show = new QCheckBox(tr("Do not show this warning again"), this);
    m_dont_show->setObjectName(QStringLiteral("o_dont_show"));

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* top = new QHBoxLayout;
    top->addWidget(icon);
    top->addWidget(text, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_dont_show);
    layout->addWidget(buttons);
    // A wrapped label only gets its full height when the dialog is sized from it.
    text->setMinimumWidth(420);
    layout->setSizeConstraint(QLayout::SetMinimumSize);
}

bool usage_warning::dont_show_again() const
{
    return m_dont_show->isChecked();
}
