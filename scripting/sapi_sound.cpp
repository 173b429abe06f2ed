// The API's sounds: synthesised tones and sound files, each waited for with the event loop running.
#include "scripting/sapi.h"

#include <QAudioDeviceInfo>
#include <QAudioFormat>
#include <QAudioOutput>
#include <QBuffer>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QSound>
#include <QtEndian>

#include <cmath>

namespace {

QAudioFormat tone_format()
{
    QAudioFormat format;
    format.setSampleRate(sapi::sample_rate);
    format.setChannelCount(1);
    format.setSampleSize(16);
    format.setSampleType(QAudioFormat::SignedInt);
    format.setByteOrder(QAudioFormat::LittleEndian);
    format.setCodec(QStringLiteral("audio/pcm"));
    return format;
}

} // namespace

QByteArray sapi::tone_samples(double frequency, double seconds)
{
    const qint64 count = seconds > 0 ? qint64(sample_rate * seconds) : 0;
    QByteArray samples(int(count * 2), Qt::Uninitialized);
    for (qint64 i = 0; i < count; ++i) {
        const double value = std::sin(double(i) * frequency * 2 * M_PI / sample_rate) * 32767;
        qToLittleEndian<qint16>(qint16(value), samples.data() + i * 2);
    }
    return samples;
}

bool sapi::play_tones(const QList<tone>& tones)
{
    const QAudioDeviceInfo device = QAudioDeviceInfo::defaultOutputDevice();
    if (device.isNull() || !device.isFormatSupported(tone_format()))
        return false;
    for (const tone& t : tones) {
        QByteArray samples = tone_samples(t.first, t.second);
        QBuffer buffer(&samples);
        buffer.open(QIODevice::ReadOnly);
        QAudioOutput output(device, tone_format());
        output.start(&buffer);
        if (output.error() != QAudio::NoError)
            return false;
        // A device that stops taking samples must not hold the script for good.
        const QDeadlineTimer deadline(qint64(double(t.second) * 1000) + 5000);
        sapi_wait([&] { return output.state() == QAudio::ActiveState && !deadline.hasExpired(); });
        output.stop();
    }
    return true;
}

bool sapi::play_sound(const QString& file, bool background)
{
    if (!QFileInfo(file).isReadable())
        return false;
    if (background) {
        QSound::play(file);
        return true;
    }
    QSound sound(file);
    sound.play();
    sapi_wait([&] { return !sound.isFinished(); });
    return true;
}

void sapi::sapi_play_beep(const QList<tone>& tones)
{
    if (!play_tones(tones))
        sapi_error(tr("No audio output to play the sound"), false);
}

void sapi::sapi_play_sound(const QString& file, bool background)
{
    if (!play_sound(file, background))
        sapi_error(tr("Unable to play the sound file %1").arg(file), false);
}
