#pragma once

#include <QDialog>
#include <QVariant>

class QAbstractItemModel;
class QLabel;
class QLineEdit;
class QListView;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QStackedWidget;
class resource_viewer;

// Edits one quick action: title, icon, and what it runs (a command, macro lines or a file).
class script_action final : public QDialog
{
    Q_OBJECT
public:
    explicit script_action(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(script_action)

    // The commands offered in list_actions; their text is in the model's user role.
    void set_commands(QAbstractItemModel* commands);
    // Fills the form; tag is the action's identifier, empty for a new action.
    void prepare(const QString& title, const QVariant& tag, const QString& icon, const QString& action_title, uint mode,
        const QString& value);
    QVariant tag() const { return m_tag; }

signals:
    void done(QVariant tag, QString icon, QString title, uint mode, QString value);

public slots:
    void accept() override;

private slots:
    void on_uuid_btn_clicked();
    void on_icon_file_btn_clicked();
    void on_icon_res_btn_clicked();
    void on_btn_select_script_clicked();

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    void set_icon(const QString& path);

    QVariant m_tag;
    QString m_icon;
    resource_viewer* m_resources = nullptr;

    QLabel* l_title = nullptr;
    QLineEdit* input_title = nullptr;
    QLabel* l_icon_caption = nullptr;
    QLabel* l_icon = nullptr;
    QPushButton* icon_res_btn = nullptr;
    QPushButton* icon_file_btn = nullptr;
    QPushButton* uuid_btn = nullptr;
    QRadioButton* r_action = nullptr;
    QRadioButton* r_macro = nullptr;
    QRadioButton* r_script = nullptr;
    QStackedWidget* options = nullptr;
    QListView* list_actions = nullptr;
    QPlainTextEdit* input_macro = nullptr;
    QLineEdit* input_script_file = nullptr;
    QPushButton* btn_select_script = nullptr;
};
