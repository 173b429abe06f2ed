#pragma once

#include "plugins/sapi_interface.h"
#include "scripting/console.h"
#include "tasks/endpoint.h"
#include "tasks/parameters.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <exception>
#include <functional>
#include <memory>
#include <vector>

class QNetworkReply;
class QSettings;
class QTemporaryFile;
class lua_runtime;

namespace tasks {
class manager;
}

// The one door through which scripted code (commands, Lua, plugins) reaches the program:
// the device table in its scripted form, settings, network, sound, and the console. It
// turns Qt's asynchronous facilities into blocking calls by waiting with the event loop
// running, and text into typed values.
class sapi final : public QObject, public plugins::sapi_interface
{
    Q_OBJECT
public:
    // A text that a conversion can't read.
    class unsupported_value_exception : public std::exception
    {
    public:
        explicit unsupported_value_exception(QString value);
        const char* what() const noexcept override { return m_what.constData(); }
        const QString& value() const { return m_value; }

    private:
        QString m_value;
        QByteArray m_what;
    };

    // Subsystems that scripts can ask for and that may be missing from a build.
    enum class feature { video, widgets };

    // What the program does for the API; the later subsystems stay empty until built,
    // and their operations then say so.
    struct core_functions
    {
        std::function<bool()> echo_enabled;
        // Whether the program runs without windows.
        std::function<bool()> batch;
        std::function<void(const endpoint&)> add_device;
        std::function<void()> clear_devices;
        std::function<unsigned long(const QString& file, bool selected_only)> export_devices;
        std::function<unsigned long(const QString& file)> import_devices;
        // Starts a plain scan; false when it was refused.
        std::function<bool()> start_scan;
        std::function<bool()> scan_finished;
        // After a setting was written: the program reads its settings again.
        std::function<void()> settings_changed;
        std::function<QStringList()> pack_list;
        std::function<QVariantMap()> caps;
        std::function<QString()> version;
        std::function<bool(const QString& serial, const QString& first, const QString& second)> register_device;
        std::function<QVariantMap(const QString& serial, short port, const QString& mac, const QHostAddress& address)>
            register_mac;
        std::function<QList<QVariantMap>()> plugin_list;

        std::function<void(const QUrl& url, const param_list& params)> play_video;
        std::function<bool(const QString& name, const QString& operation, const QStringList& args,
            const param_list& params)>
            toolbar;
    };

    static constexpr int sample_rate = 44100;

    sapi(core_functions functions, tasks::manager& manager, QSettings& settings, QObject* parent = nullptr);
    ~sapi() override;
    Q_DISABLE_COPY_MOVE(sapi)

    // Where output goes; none until a console exists.
    void set_console(scripting::console* console) { m_console = console; }
    scripting::console* console() const { return m_console; }
    // What runs Lua; none until given, and Lua then says that its runtime isn't initialised.
    void set_lua(lua_runtime* runtime) { m_lua = runtime; }

    // Text conversions of every script layer; each throws unsupported_value_exception for
    // a text it can't read.
    // "yes", "1", "true", "on", "enable", "enabled" and their opposites, in any case.
    static bool to_bool(const QString& text);
    // A number with an optional unit: "us", "µs", "ms", "m", "h", "d", "s"; 0 when unreadable.
    static double to_seconds(const QString& text);
    // A number with an optional "kHz", "MHz" or "Hz"; 0 when unreadable.
    static double to_hertz(const QString& text);
    static uint to_unsigned(const QString& text);

    // One tone as 16-bit signed mono samples at sample_rate.
    static QByteArray tone_samples(double frequency, double seconds);
    // Plays tones in sequence; false, at the first that can't be played, when there is no
    // audio output.
    bool play_tones(const QList<tone>& tones);
    // False when the file can't be played.
    bool play_sound(const QString& file, bool background);

    bool available(feature f) const;
    // The message of a missing feature.
    static QString unavailable_text(feature f);

    void sapi_run_lua(bool code, const QString& text) override;
    void sapi_done() override;
    void sapi_error(const QString& message, bool replace_last) override;
    void sapi_output(const QString& message, bool replace_last) override;
    QByteArray sapi_url_data(const QUrl& url) override;
    bool sapi_wait(const std::function<bool()>& condition) override;
    QVariantMap sapi_caps() override;
    void sapi_devices_add(const QString& host, int port, const QString& user, const QString& password) override;
    bool sapi_devices_clear() override;
    unsigned long sapi_devices_export(const QString& file, bool selected_only) override;
    unsigned long sapi_devices_import(const QString& file) override;
    unsigned long sapi_devices_scan() override;
    bool sapi_download_file(const QUrl& url, const QString& file) override;
    QHostAddress sapi_local_ip(const QString& device) override;
    QString sapi_local_mac(const QString& device) override;
    QVariant sapi_settings_get(const QString& key, const QVariant& fallback) override;
    QStringList sapi_pack_list() override;
    void sapi_play_beep(const QList<tone>& tones) override;
    void sapi_play_sound(const QString& file, bool background) override;
    void sapi_play_video(const QUrl& url, const param_list& params) override;
    QList<QVariantMap> sapi_plugin_list() override;
    bool sapi_register_device(const QString& serial, const QString& first, const QString& second) override;
    QVariantMap sapi_register_mac(
        const QString& serial, short port, const QString& mac, const QHostAddress& address) override;
    param_list sapi_rest_get(const QUrl& url) override;
    param_list sapi_rest_post(const QUrl& url, const QByteArray& body) override;
    void sapi_run_lua_file(const QString& file) override;
    void sapi_run_lua_line(const QString& line) override;
    void sapi_settings_set(const QString& key, const QVariant& value) override;
    void sapi_sleep(float seconds) override;
    bool sapi_toolbar(const QString& name, const QString& operation, const QStringList& args,
        const param_list& params) override;
    QString sapi_url_contents(const QUrl& url) override;
    QString sapi_version() override;
    void sapi_view_image(const QUrl& url) override;

private:
    // The body of a finished reply, waited for with the event loop running.
    QByteArray finish(QNetworkReply* reply);
    bool echo() const;
    // Says that a feature is missing; false.
    bool refuse(feature f);

    core_functions m_functions;
    tasks::manager& m_manager;
    QSettings& m_settings;
    scripting::console* m_console = nullptr;
    lua_runtime* m_lua = nullptr;
    // Images fetched for the console stay until the API goes.
    std::vector<std::unique_ptr<QTemporaryFile>> m_images;
};
