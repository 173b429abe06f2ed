#pragma once

#include <QPlainTextEdit>

class codeeditor_lines;

// A plain text editor for scripts: a fixed font, a margin with block numbers and macro
// markers, Ctrl+/ to comment the selected lines in or out, Ctrl+= and Ctrl+- to zoom.
class codeeditor final : public QPlainTextEdit
{
    Q_OBJECT
public:
    explicit codeeditor(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(codeeditor)

    // The margin's marker of a line: recording, stop and run of a macro; empty for others.
    static QString marker(const QString& block_text);
    int margin_width() const;
    // "#" before each line of the selection, or taken off each, as its first line says.
    void toggle_comment();
    // Grows (positive) or shrinks the font by steps of a point; the margin follows.
    void change_font_size(int steps);
    const QFont& margin_font() const { return m_margin_font; }

    // Called by the margin.
    void paint_margin(QPaintEvent* event);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void update_margin_width();
    void update_margin(const QRect& rect, int dy);

    codeeditor_lines* m_margin;
    QFont m_margin_font;
};
