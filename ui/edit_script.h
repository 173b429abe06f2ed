#pragma once

#include <QDialog>

class QDialogButtonBox;
class QLabel;
class codeeditor;
class codehighlighter;

// Edits the text of a script file; what to do with the result is the caller's.
class edit_script final : public QDialog
{
    Q_OBJECT
public:
    explicit edit_script(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(edit_script)

    // Shows a script's name and contents for editing.
    void edit(const QString& name, const QString& contents);
    QString contents() const;

signals:
    // Accepted: the name it was opened with and the edited text.
    void done(QString name, QString contents);

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();

    QString m_name;
    QLabel* l_script_file = nullptr;
    QLabel* l_script_file_name = nullptr;
    QLabel* l_script = nullptr;
    codeeditor* m_editor = nullptr;
    codehighlighter* m_highlighter = nullptr;
    QDialogButtonBox* m_buttons = nullptr;
};
