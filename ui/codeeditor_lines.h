#pragma once

#include <QWidget>

class codeeditor;

// The margin of a code editor: block numbers and macro markers, painted by the editor.
class codeeditor_lines final : public QWidget
{
    Q_OBJECT
public:
    explicit codeeditor_lines(codeeditor* editor);
    Q_DISABLE_COPY_MOVE(codeeditor_lines)

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    codeeditor* m_editor;
};
