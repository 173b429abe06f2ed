#pragma once

#include <QDialog>
#include <QList>
#include <QString>

#include "tasks/endpoint.h"

class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QRadioButton;
class QSpinBox;
class QWidget;

// Adds devices (one, or a run of consecutive addresses) or edits one device's endpoint.
class task_edit final : public QDialog
{
    Q_OBJECT
public:
    explicit task_edit(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(task_edit)

    // Empties the form for adding; the caller shows the dialog.
    void prepare_add();
    // Fills the form from a device's endpoint. An encrypted password stays as it is
    // unless the user types a new one.
    void prepare_edit(const QString& ident, const endpoint& data);

    // The address n steps after address in its last octet. With clamp the octet stops
    // at 255; without, passing 255 fails. Empty for a text that isn't a.b.c.d or n < 0.
    static QString increase(const QString& address, int n, bool clamp = true);

    bool add_mode() const { return m_add_mode; }
    bool password_kept() const { return m_password_kept; }
    // The range of a Multiple add; empty and 0 while the address is invalid.
    QString range_first() const { return m_range_first; }
    QString range_last() const { return m_range_last; }
    int range_count() const { return m_range_count; }

signals:
    void added(const QList<endpoint>& data);
    void edited(const QString& ident, const endpoint& data);

private slots:
    void on_buttonBox_accepted();
    void on_f_address_textEdited(const QString& text);
    void on_f_num_devices_valueChanged(int i);
    void on_f_password_textEdited(const QString& text);
    void on_o_add_single_clicked(bool checked);
    void on_o_add_multi_clicked(bool checked);

protected:
    void changeEvent(QEvent* event) override;

private:
    // Every text of the form, again after a change of language.
    void retranslate();
    void update_mode_widgets();
    void update_range();
    // Name, port, user and password from the form, on top of base.
    endpoint from_form(endpoint base) const;
    // Shows why the task list couldn't hold data; false (and nothing shown) when it could.
    bool refused(const endpoint& data);

    QLineEdit* f_name = nullptr;
    QLineEdit* f_address = nullptr;
    QLabel* l_name = nullptr;
    QLabel* l_address = nullptr;
    QLabel* l_add = nullptr;
    QLabel* l_port = nullptr;
    QLabel* l_user = nullptr;
    QLabel* l_password = nullptr;
    QWidget* w_add = nullptr;
    QRadioButton* o_add_single = nullptr;
    QRadioButton* o_add_multi = nullptr;
    QSpinBox* f_num_devices = nullptr;
    QLabel* l_range = nullptr;
    QLabel* l_error = nullptr;
    QSpinBox* f_port = nullptr;
    QLineEdit* f_user = nullptr;
    QLineEdit* f_password = nullptr;
    QDialogButtonBox* buttonBox = nullptr;

    bool m_add_mode = true;
    QString m_ident;
    endpoint m_original;
    bool m_password_kept = false;
    QString m_stored_password;
    QString m_range_first;
    QString m_range_last;
    int m_range_count = 0;
};
