#pragma once

#include <QMap>
#include <QMutex>
#include <QObject>
#include <QStringList>

namespace scripting {

// Named lists of OVScript lines, kept in memory only, and their playback as a burst of
// signals. Failures are reported through error() and a false return.
class macro_recorder final : public QObject
{
    Q_OBJECT
public:
    explicit macro_recorder(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(macro_recorder)

    // No list is made until the first line, so a recording without lines leaves no macro.
    bool start_recording(const QString& name);
    bool stop_recording();
    bool is_recording() const;
    bool add_line(const QString& line);
    // Emits playback_started, macro_line for each stored line, then playback_stopped;
    // the lines run later, wherever macro_line takes them.
    bool play(const QString& name);
    bool exists(const QString& name) const;
    QStringList names() const;
    // The stored lines; an unknown name gives an error and an empty list.
    QStringList lines(const QString& name);
    bool remove(const QString& name);

signals:
    void error(const QString& message);
    void macro_line(const QString& line);
    void playback_started(const QString& name);
    void playback_stopped();
    void recording_started(const QString& name);
    void recording_stopped();

private:
    // Read by the core from inside a command and by event actions from their thread,
    // written by the interpreter; signals are emitted outside it.
    mutable QMutex m_mutex;
    QMap<QString, QStringList> m_recordings;
    QString m_current_name;
    bool m_recording = false;
};

} // namespace scripting
