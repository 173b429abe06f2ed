#pragma once

// The program's services as a plugin sees them. A plugin compiles against this header
// alone: it uses Qt and the standard library, nothing of the program's own.

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>

#include <functional>

namespace plugins {

// Plugins are built against this order of operations: an operation is never moved or
// removed, and a new one goes at the end.
class sapi_interface
{
public:
    // Named parameters of a command.
    using param_list = QMap<QString, QString>;
    // A tone: frequency in hertz, duration in seconds.
    using tone = QPair<float, float>;

    virtual ~sapi_interface() = default;

    // Runs Lua: a chunk of code, or the file named by text.
    virtual void sapi_run_lua(bool code, const QString& text) = 0;
    // Shows that a long command is done.
    virtual void sapi_done() = 0;
    virtual void sapi_error(const QString& message, bool replace_last) = 0;
    virtual void sapi_output(const QString& message, bool replace_last) = 0;
    // The body of a GET; empty when it fails.
    virtual QByteArray sapi_url_data(const QUrl& url) = 0;
    // Processes events while condition holds; false when the application is ending meanwhile.
    virtual bool sapi_wait(const std::function<bool()>& condition) = 0;
    virtual QVariantMap sapi_caps() = 0;
    virtual void sapi_devices_add(const QString& host, int port, const QString& user, const QString& password) = 0;
    // False while tasks run.
    virtual bool sapi_devices_clear() = 0;
    virtual unsigned long sapi_devices_export(const QString& file, bool selected_only) = 0;
    virtual unsigned long sapi_devices_import(const QString& file) = 0;
    // Scans the local network and waits for the end; the number of devices then. Throws a
    // QString while tasks run.
    virtual unsigned long sapi_devices_scan() = 0;
    virtual bool sapi_download_file(const QUrl& url, const QString& file) = 0;
    // The address of an interface (the first one in use when device is empty); null when none.
    virtual QHostAddress sapi_local_ip(const QString& device) = 0;
    virtual QString sapi_local_mac(const QString& device) = 0;
    virtual QVariant sapi_settings_get(const QString& key, const QVariant& fallback) = 0;
    // Paths of the firmware packs on offer.
    virtual QStringList sapi_pack_list() = 0;
    // Plays the tones one after the other and returns after the last.
    virtual void sapi_play_beep(const QList<tone>& tones) = 0;
    virtual void sapi_play_sound(const QString& file, bool background) = 0;
    virtual void sapi_play_video(const QUrl& url, const param_list& params) = 0;
    // Per plugin: "ident", "filename", "status".
    virtual QList<QVariantMap> sapi_plugin_list() = 0;
    virtual bool sapi_register_device(const QString& serial, const QString& first, const QString& second) = 0;
    // "result", "date", "operator_mac", "operator_ip" of the service's answer.
    virtual QVariantMap sapi_register_mac(
        const QString& serial, short port, const QString& mac, const QHostAddress& address)
        = 0;
    // A JSON object's members as text; a body that isn't one comes back under "-raw-".
    virtual param_list sapi_rest_get(const QUrl& url) = 0;
    virtual param_list sapi_rest_post(const QUrl& url, const QByteArray& body) = 0;
    virtual void sapi_run_lua_file(const QString& file) = 0;
    virtual void sapi_run_lua_line(const QString& line) = 0;
    virtual void sapi_settings_set(const QString& key, const QVariant& value) = 0;
    // Waits while the event loop runs on.
    virtual void sapi_sleep(float seconds) = 0;
    virtual bool sapi_toolbar(
        const QString& name, const QString& operation, const QStringList& args, const param_list& params)
        = 0;
    // The body of a GET as Latin-1 text, up to its first NUL.
    virtual QString sapi_url_contents(const QUrl& url) = 0;
    virtual QString sapi_version() = 0;
    virtual void sapi_view_image(const QUrl& url) = 0;
};

} // namespace plugins
