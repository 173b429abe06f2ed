#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QWaitCondition>

// The console's output as HTML lines, with an animated line at the end that a thread of its
// own moves on while a command waits. Any thread may change the buffer; buffer_updated()
// says that it changed, and the owner reads html() on its own thread.
class cmd_buffer_controller final : public QThread
{
    Q_OBJECT
public:
    // The animation kinds, numbered as the console's waits name them.
    enum kind { waiting = 0, spinning = 1, scanning = 2 };
    // One frame every this many milliseconds.
    static constexpr int frame_ms = 100;

    explicit cmd_buffer_controller(QObject* parent = nullptr);
    ~cmd_buffer_controller() override;
    Q_DISABLE_COPY_MOVE(cmd_buffer_controller)

    // replace_last drops the last line first.
    void append(const QString& html, bool replace_last);
    void remove_last();
    void clear();
    // The lines and the animated line joined with nothing between them.
    QString html() const;
    int line_count() const;
    // Whether the buffer changed since the last call; lets a burst of updates render once.
    bool take_changed();

    // Starts animating message, unless an animation runs already (its message stays).
    void start_animation(const QString& message, kind animation);
    // Ends the animation and waits for the thread; the animated line goes.
    void stop_animation();

    // The animated line as the thread shows it.
    static QString frame_html(const QString& message, const QString& frame);

signals:
    void buffer_updated();

protected:
    void run() override;

private:
    void changed();

    QString m_message;
    kind m_kind = waiting;
    // Guards the lines, the animated line, the change mark and the stop request.
    mutable QMutex m_mutex;
    QWaitCondition m_stop_requested;
    QStringList m_lines;
    QString m_tail;
    bool m_changed = false;
    bool m_stopping = false;
};
