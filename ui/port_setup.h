#pragma once

#include <QDialog>

class QGroupBox;
class QLabel;
class QRadioButton;
class QSpinBox;

// Asks for a port: the type's default, or a value of the user's choosing.
class port_setup final : public QDialog
{
    Q_OBJECT
public:
    explicit port_setup(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(port_setup)

    // Fills the form and runs the dialog; the dialog result.
    int ask(const QString& text, quint16 default_port, quint16 current_port, bool use_default);
    // Fills the form without running it.
    void prepare(const QString& text, quint16 default_port, quint16 current_port, bool use_default);
    // 0 when the default is chosen, else the custom value.
    int port() const;

private slots:
    void on_i_port_valueChanged(int i);

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    QLabel* l_info = nullptr;
    QGroupBox* group = nullptr;
    QRadioButton* o_default = nullptr;
    QLabel* l_default = nullptr;
    QRadioButton* o_user = nullptr;
    QSpinBox* i_port = nullptr;
};
