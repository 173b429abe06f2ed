#include "scripting/macro_recorder.h"

namespace scripting {

macro_recorder::macro_recorder(QObject* parent)
    : QObject(parent)
{
}

bool macro_recorder::start_recording(const QString& name)
{
    QString refusal;
    {
        QMutexLocker lock(&m_mutex);
        if (m_recording)
            refusal = tr("Already recording");
        else if (name.isEmpty())
            refusal = tr("Empty name is not allowed");
        else if (m_recordings.contains(name))
            refusal = tr("Name already exists");
        else {
            m_current_name = name;
            m_recording = true;
        }
    }
    if (!refusal.isEmpty()) {
        emit error(refusal);
        return false;
    }
    emit recording_started(name);
    return true;
}

bool macro_recorder::stop_recording()
{
    bool was_recording = false;
    {
        QMutexLocker lock(&m_mutex);
        was_recording = m_recording;
        m_current_name.clear();
        m_recording = false;
    }
    if (!was_recording) {
        emit error(tr("No active recording"));
        return false;
    }
    emit recording_stopped();
    return true;
}

bool macro_recorder::is_recording() const
{
    QMutexLocker lock(&m_mutex);
    return m_recording;
}

bool macro_recorder::add_line(const QString& line)
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_recording) {
            m_recordings[m_current_name].append(line);
            return true;
        }
    }
    emit error(tr("No active recording"));
    return false;
}

bool macro_recorder::play(const QString& name)
{
    QStringList stored;
    QString refusal;
    {
        QMutexLocker lock(&m_mutex);
        // The words stand for any activity of the recorder.
        if (m_recording)
            refusal = tr("Macro already running");
        else if (!m_recordings.contains(name))
            refusal = tr("No such recording");
        else
            stored = m_recordings.value(name);
    }
    if (!refusal.isEmpty()) {
        emit error(refusal);
        return false;
    }
    emit playback_started(name);
    for (const QString& line : qAsConst(stored))
        emit macro_line(line);
    emit playback_stopped();
    return true;
}

bool macro_recorder::exists(const QString& name) const
{
    QMutexLocker lock(&m_mutex);
    return m_recordings.contains(name);
}

QStringList macro_recorder::names() const
{
    QMutexLocker lock(&m_mutex);
    return m_recordings.keys();
}

QStringList macro_recorder::lines(const QString& name)
{
    {
        QMutexLocker lock(&m_mutex);
        const auto found = m_recordings.constFind(name);
        if (found != m_recordings.cend())
            return *found;
    }
    emit error(tr("No such recording"));
    return {};
}

bool macro_recorder::remove(const QString& name)
{
    QString refusal;
    {
        QMutexLocker lock(&m_mutex);
        if (m_recording)
            refusal = tr("Can't remove while recording");
        else if (m_recordings.remove(name) == 0)
            refusal = tr("No such recording");
    }
    if (!refusal.isEmpty()) {
        emit error(refusal);
        return false;
    }
    return true;
}

} // namespace scripting
