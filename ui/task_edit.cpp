#include "ui/task_edit.h"

#include <QDialogButtonBox>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSpinBox>

#include "tasks/task_list_file.h"

namespace
{

template <typename T> T* named(T* widget, const char* name)
{
    widget->setObjectName(QLatin1String(name));
    return widget;
}

int last_octet(const QString& address)
{
    return address.section(QLatin1Char('.'), 3, 3).toInt();
}

} // namespace

task_edit::task_edit(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("task_edit"));

    f_name = named(new QLineEdit(this), "f_name");
    f_address = named(new QLineEdit(this), "f_address");
    f_address->setPlaceholderText(QStringLiteral("192.168.1.10"));

    w_add = named(new QWidget(this), "w_add");
    o_add_single = named(new QRadioButton(w_add), "o_add_single");
    o_add_multi = named(new QRadioButton(w_add), "o_add_multi");
    f_num_devices = named(new QSpinBox(w_add), "f_num_devices");
    f_num_devices->setRange(1, 255);
    auto* add_row = new QHBoxLayout(w_add);
    add_row->setContentsMargins(0, 0, 0, 0);
    add_row->addWidget(o_add_single);
    add_row->addWidget(o_add_multi);
    add_row->addWidget(f_num_devices);
    add_row->addStretch();
    l_range = named(new QLabel(this), "l_range");
    l_range->setTextFormat(Qt::RichText);

    f_port = named(new QSpinBox(this), "f_port");
    f_port->setRange(1, 65535);
    f_user = named(new QLineEdit(this), "f_user");
    f_password = named(new QLineEdit(this), "f_password");
    f_password->setEchoMode(QLineEdit::Password);

    l_error = named(new QLabel(this), "l_error");
    l_error->setWordWrap(true);
    l_error->setStyleSheet(QStringLiteral("color: red;"));
    l_error->hide();
    buttonBox = named(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this), "buttonBox");

    auto* form = new QFormLayout;
    l_name = named(new QLabel(this), "l_name");
    l_address = named(new QLabel(this), "l_address");
    l_add = named(new QLabel(this), "l_add");
    l_port = named(new QLabel(this), "l_port");
    l_user = named(new QLabel(this), "l_user");
    l_password = named(new QLabel(this), "l_password");
    form->addRow(l_name, f_name);
    form->addRow(l_address, f_address);
    form->addRow(l_add, w_add);
    form->addRow(QString(), l_range);
    form->addRow(l_port, f_port);
    form->addRow(l_user, f_user);
    form->addRow(l_password, f_password);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(l_error);
    layout->addWidget(buttonBox);
    setMinimumWidth(360);

    connect(buttonBox, &QDialogButtonBox::accepted, this, &task_edit::on_buttonBox_accepted);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(f_address, &QLineEdit::textEdited, this, &task_edit::on_f_address_textEdited);
    connect(
        f_num_devices, QOverload<int>::of(&QSpinBox::valueChanged), this, &task_edit::on_f_num_devices_valueChanged);
    connect(f_password, &QLineEdit::textEdited, this, &task_edit::on_f_password_textEdited);
    connect(o_add_single, &QRadioButton::clicked, this, &task_edit::on_o_add_single_clicked);
    connect(o_add_multi, &QRadioButton::clicked, this, &task_edit::on_o_add_multi_clicked);

    prepare_add();
}

void task_edit::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QDialog::changeEvent(event);
}

void task_edit::retranslate()
{
    setWindowTitle(m_add_mode ? tr("Add task") : tr("Edit task"));
    o_add_single->setText(tr("Single"));
    o_add_multi->setText(tr("Multiple"));
    l_name->setText(tr("Name:"));
    l_address->setText(tr("Host:"));
    l_add->setText(tr("Add:"));
    l_port->setText(tr("Port:"));
    l_user->setText(tr("User:"));
    l_password->setText(tr("Password:"));
    f_password->setPlaceholderText(m_password_kept ? tr("Encrypted") : QString());
    update_range();
}

void task_edit::prepare_add()
{
    m_add_mode = true;
    m_ident.clear();
    l_error->hide();
    m_original = endpoint();
    m_password_kept = false;
    m_stored_password.clear();
    f_name->clear();
    f_address->clear();
    f_port->setValue(endpoint::default_port);
    f_user->setText(m_original.user);
    f_password->clear();
    o_add_single->setChecked(true);
    f_num_devices->setValue(1);
    update_mode_widgets();
    retranslate();
}

void task_edit::prepare_edit(const QString& ident, const endpoint& data)
{
    m_add_mode = false;
    m_ident = ident;
    l_error->hide();
    m_original = data;
    f_name->setText(data.name);
    f_address->setText(data.host);
    f_port->setValue(data.port);
    f_user->setText(data.user);
    // The encrypted form can't be shown or edited: it is kept aside and used again
    // unless the user types a password of their own.
    m_password_kept = data.password_encrypted;
    m_stored_password = data.password_encrypted ? data.password : QString();
    f_password->setText(data.password_encrypted ? QString() : data.password);
    o_add_single->setChecked(true);
    update_mode_widgets();
    retranslate();
}

QString task_edit::increase(const QString& address, int n, bool clamp)
{
    const QStringList parts = address.split(QLatin1Char('.'));
    if (parts.size() != 4 || n < 0)
        return {};
    QVector<int> octets;
    for (const QString& part : parts) {
        bool ok = false;
        const int value = part.toInt(&ok);
        if (!ok || value < 0 || value > 255)
            return {};
        octets.append(value);
    }
    const qint64 sum = qint64(octets[3]) + n;
    if (sum > 255 && !clamp)
        return {};
    octets[3] = int(qMin<qint64>(sum, 255));
    return QStringLiteral("%1.%2.%3.%4").arg(octets[0]).arg(octets[1]).arg(octets[2]).arg(octets[3]);
}

void task_edit::update_mode_widgets()
{
    l_add->setVisible(m_add_mode);
    w_add->setVisible(m_add_mode);
    const bool multi = m_add_mode && o_add_multi->isChecked();
    f_num_devices->setEnabled(multi);
    l_range->setVisible(multi);
    update_range();
}

void task_edit::update_range()
{
    m_range_first.clear();
    m_range_last.clear();
    m_range_count = 0;
    if (!m_add_mode || !o_add_multi->isChecked()) {
        l_range->clear();
        return;
    }
    // Four decimal octets, as typed: a parser that took "010" for octal would shift the range.
    const QString first = increase(f_address->text().trimmed(), 0, false);
    if (!first.isEmpty()) {
        const QString last = increase(first, f_num_devices->value() - 1, true);
        if (!last.isEmpty()) {
            m_range_first = first;
            m_range_last = last;
            m_range_count = last_octet(last) - last_octet(first) + 1;
            l_range->setText(tr("%1 — %2").arg(first, last));
            return;
        }
    }
    l_range->setText(QStringLiteral("<span style='color: red;'>%1</span>").arg(tr("Invalid")));
}

endpoint task_edit::from_form(endpoint base) const
{
    base.name = f_name->text().trimmed();
    base.port = uint16_t(f_port->value());
    base.user = f_user->text();
    base.password = m_password_kept ? m_stored_password : f_password->text();
    base.password_encrypted = m_password_kept;
    return base;
}

bool task_edit::refused(const endpoint& data)
{
    const QString problem = tasks::task_list_file::unwritable(data);
    l_error->setText(problem);
    l_error->setVisible(!problem.isEmpty());
    return !problem.isEmpty();
}

void task_edit::on_buttonBox_accepted()
{
    if (!m_add_mode) {
        endpoint data = from_form(m_original);
        data.host = f_address->text().trimmed();
        if (refused(data))
            return;
        emit edited(m_ident, data);
        accept();
        return;
    }

    QList<endpoint> list;
    if (o_add_multi->isChecked()) {
        for (int i = 0; i < m_range_count; ++i) {
            endpoint data = from_form(endpoint());
            data.host = increase(m_range_first, i, true);
            list.append(data);
        }
    } else if (!f_address->text().trimmed().isEmpty()) {
        endpoint data = from_form(endpoint());
        data.host = f_address->text().trimmed();
        list.append(data);
    }
    // Nothing to add: the form stays open, its range already reads "Invalid".
    // The rows of a range differ in the address's last number only.
    if (list.isEmpty() || refused(list.constFirst()))
        return;
    emit added(list);
    accept();
}

void task_edit::on_f_address_textEdited(const QString& text)
{
    Q_UNUSED(text)
    update_range();
}

void task_edit::on_f_num_devices_valueChanged(int i)
{
    Q_UNUSED(i)
    update_range();
}

void task_edit::on_f_password_textEdited(const QString& text)
{
    Q_UNUSED(text)
    // From the first key on, the field counts.
    m_password_kept = false;
}

void task_edit::on_o_add_single_clicked(bool checked)
{
    Q_UNUSED(checked)
    update_mode_widgets();
}

void task_edit::on_o_add_multi_clicked(bool checked)
{
    Q_UNUSED(checked)
    update_mode_widgets();
}
