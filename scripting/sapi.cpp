#include "scripting/sapi.h"

#include "scripting/lua_runtime.h"
#include "scripting/text_values.h"
#include "scripting/wait.h"
#include "tasks/manager.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkInterface>
#include <QSettings>
#include <QTemporaryFile>
#include <QTimer>

#include <limits>
#include <utility>

namespace {

// A number with the first unit of the table that ends the text; see to_seconds.
double with_unit(const QString& text, const QList<QPair<QString, double>>& units)
{
    const QString lowered = text.toLower();
    for (const auto& [suffix, factor] : units) {
        if (!lowered.endsWith(suffix))
            continue;
        const double number = lowered.left(lowered.size() - suffix.size()).toDouble();
        // A unit with nothing readable before it reads the whole text, which gives 0.
        return number != 0 ? number * factor : lowered.toDouble();
    }
    return lowered.toDouble();
}

// The interface for a device name; with none, the first one in use that has an address.
QNetworkInterface interface_of(const QString& device)
{
    if (!device.isEmpty())
        return QNetworkInterface::interfaceFromName(device);
    for (const QNetworkInterface& iface : QNetworkInterface::allInterfaces()) {
        if (iface.isValid() && (iface.flags() & QNetworkInterface::IsUp)
            && !(iface.flags() & QNetworkInterface::IsLoopBack) && !iface.addressEntries().isEmpty())
            return iface;
    }
    return {};
}

} // namespace

sapi::unsupported_value_exception::unsupported_value_exception(QString value)
    : m_value(std::move(value))
    , m_what(QCoreApplication::translate("sapi", "Unsupported value: %1").arg(m_value).toUtf8())
{
}

sapi::sapi(core_functions functions, tasks::manager& manager, QSettings& settings, QObject* parent)
    : QObject(parent)
    , m_functions(std::move(functions))
    , m_manager(manager)
    , m_settings(settings)
{
}

sapi::~sapi() = default;

bool sapi::to_bool(const QString& text)
{
    const std::optional<bool> value = scripting::text_to_bool(text);
    if (!value)
        throw unsupported_value_exception(text);
    return *value;
}

double sapi::to_seconds(const QString& text)
{
    static const QList<QPair<QString, double>> units { { "us", 0.000001 }, { QStringLiteral("µs"), 0.000001 },
        { "ms", 0.001 }, { "m", 60 }, { "h", 3600 }, { "d", 86400 }, { "s", 1 } };
    return with_unit(text, units);
}

double sapi::to_hertz(const QString& text)
{
    static const QList<QPair<QString, double>> units { { "khz", 1000 }, { "mhz", 1000000 }, { "hz", 1 } };
    return with_unit(text, units);
}

uint sapi::to_unsigned(const QString& text)
{
    bool ok = false;
    const uint value = text.toUInt(&ok);
    if (!ok)
        throw unsupported_value_exception(text);
    return value;
}

bool sapi::available(feature f) const
{
    switch (f) {
    case feature::video:
        // A player is a window: a run without windows has none to offer.
        return m_functions.play_video && !(m_functions.batch && m_functions.batch());
    case feature::widgets:
        return bool(m_functions.toolbar);
    }
    return false;
}

QString sapi::unavailable_text(feature f)
{
    switch (f) {
    case feature::video:
        return tr("Video playback is not available in this build");
    case feature::widgets:
        return tr("Script widgets are not available in this build");
    }
    return {};
}

bool sapi::refuse(feature f)
{
    sapi_error(unavailable_text(f), false);
    return false;
}

bool sapi::echo() const
{
    return m_functions.echo_enabled && m_functions.echo_enabled();
}

void sapi::sapi_run_lua(bool code, const QString& text)
{
    if (!m_lua || !m_lua->is_initialized()) {
        sapi_error(tr("Runtime is not initialized"), false);
        return;
    }
    sapi_output(tr("Runtime initialized"), false);
    const QString unable_to_run = code ? tr("Unable to run Lua code %1") : tr("Unable to run Lua script %1");
    // The state belongs to a running script until it ends.
    if (m_lua->is_running()) {
        sapi_error(unable_to_run.arg(text), false);
        return;
    }
    if (!(code ? m_lua->load_string(text) : m_lua->load_file(text))) {
        sapi_error((code ? tr("Unable to load Lua code %1") : tr("Unable to load Lua script %1")).arg(text), false);
        return;
    }
    sapi_output(code ? tr("Code loaded") : tr("Script loaded"), false);

    // The end as the main thread learns it: what the script told before it has arrived then.
    bool ended = false;
    const QMetaObject::Connection end
        = connect(m_lua, &lua_runtime::completed, this, [&ended] { ended = true; }, Qt::QueuedConnection);
    if (!m_lua->start_run()) {
        disconnect(end);
        sapi_error(unable_to_run.arg(text), false);
        return;
    }
    const auto running = [&ended] { return !ended; };
    if (m_console)
        m_console->wait(running, code ? tr("Code is executing...") : tr("Script is executing..."), true,
            scripting::console::spinning);
    else
        sapi_wait(running);
    disconnect(end);
    sapi_done();
}

void sapi::sapi_done()
{
    if (m_console && echo())
        m_console->append(
            QStringLiteral("<div style='color: gray; font-style: italic;'>%1</div>").arg(tr("Done")), false);
}

void sapi::sapi_error(const QString& message, bool replace_last)
{
    if (m_console && echo())
        m_console->append_error(message, replace_last);
}

void sapi::sapi_output(const QString& message, bool replace_last)
{
    if (m_console && echo())
        m_console->append(QStringLiteral("<div>%1</div>").arg(message), replace_last);
}

bool sapi::sapi_wait(const std::function<bool()>& condition)
{
    return scripting::wait_while(condition, 10);
}

QVariantMap sapi::sapi_caps()
{
    return m_functions.caps();
}

void sapi::sapi_devices_add(const QString& host, int port, const QString& user, const QString& password)
{
    endpoint ep;
    ep.host = host;
    ep.port = uint16_t(port);
    ep.user = user;
    ep.password = password;
    ep.password_encrypted = false;
    m_functions.add_device(ep);
}

bool sapi::sapi_devices_clear()
{
    if (m_manager.running_count() > 0)
        return false;
    m_functions.clear_devices();
    return true;
}

unsigned long sapi::sapi_devices_export(const QString& file, bool selected_only)
{
    return m_functions.export_devices(file, selected_only);
}

unsigned long sapi::sapi_devices_import(const QString& file)
{
    return m_functions.import_devices(file);
}

unsigned long sapi::sapi_devices_scan()
{
    if (m_manager.running_count() > 0)
        throw tr("The queue is busy, unable to scan");
    if (m_functions.start_scan())
        sapi_wait([this] { return !m_functions.scan_finished(); });
    return static_cast<unsigned long>(m_manager.count());
}

QHostAddress sapi::sapi_local_ip(const QString& device)
{
    const QNetworkInterface iface = interface_of(device);
    for (const QNetworkAddressEntry& entry : iface.addressEntries()) {
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
            return entry.ip();
    }
    return {};
}

QString sapi::sapi_local_mac(const QString& device)
{
    return interface_of(device).hardwareAddress();
}

QVariant sapi::sapi_settings_get(const QString& key, const QVariant& fallback)
{
    return m_settings.value(key, fallback);
}

void sapi::sapi_settings_set(const QString& key, const QVariant& value)
{
    m_settings.setValue(key, value);
    if (m_functions.settings_changed)
        m_functions.settings_changed();
}

QStringList sapi::sapi_pack_list()
{
    return m_functions.pack_list();
}

void sapi::sapi_play_video(const QUrl& url, const param_list& params)
{
    if (!available(feature::video)) {
        refuse(feature::video);
        return;
    }
    m_functions.play_video(url, params);
}

QList<QVariantMap> sapi::sapi_plugin_list()
{
    return m_functions.plugin_list();
}

bool sapi::sapi_register_device(const QString& serial, const QString& first, const QString& second)
{
    return m_functions.register_device(serial, first, second);
}

QVariantMap sapi::sapi_register_mac(const QString& serial, short port, const QString& mac, const QHostAddress& address)
{
    return m_functions.register_mac(serial, port, mac, address);
}

void sapi::sapi_run_lua_file(const QString& file)
{
    sapi_run_lua(false, file);
}

void sapi::sapi_run_lua_line(const QString& line)
{
    sapi_run_lua(true, line);
}

void sapi::sapi_sleep(float seconds)
{
    if (!(seconds > 0))
        return;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    // A coarse timer may end a sleep early by a twentieth.
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(int(qMin(double(seconds) * 1000, double(std::numeric_limits<int>::max()))));
    loop.exec();
}

bool sapi::sapi_toolbar(
    const QString& name, const QString& operation, const QStringList& args, const param_list& params)
{
    const QString op = operation.toLower();
    if ((op == QLatin1String("delete") || op == QLatin1String("edit")) && args.isEmpty()) {
        sapi_error(tr("Missing element identifier"), false);
        return false;
    }
    if (op != QLatin1String("show") && op != QLatin1String("hide") && op != QLatin1String("add")
        && op != QLatin1String("delete") && op != QLatin1String("edit")) {
        sapi_error(tr("Unknown operation: %1").arg(operation), false);
        return false;
    }
    if (!available(feature::widgets))
        return refuse(feature::widgets);
    return m_functions.toolbar(name, op, args, params);
}

QString sapi::sapi_version()
{
    return m_functions.version();
}

void sapi::sapi_view_image(const QUrl& url)
{
    QUrl shown = url;
    if (!url.isLocalFile()) {
        auto file = std::make_unique<QTemporaryFile>();
        if (!file->open()) {
            sapi_error(file->errorString(), false);
            return;
        }
        file->write(sapi_url_data(url));
        file->flush();
        shown = QUrl::fromLocalFile(file->fileName());
        m_images.push_back(std::move(file));
    }
    if (m_console && echo())
        m_console->append(QStringLiteral("<div><img src=\"%1\"></div>").arg(shown.toString()), false);
}
