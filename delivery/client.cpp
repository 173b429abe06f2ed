#include "delivery/client.h"

#include "diagnostics/blackbox.h"
#include "delivery/crypto.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegExp>
#include <QRegularExpression>
#include <QTextStream>

client::client(QObject* parent)
    : QObject(parent)
    , loggable("client")
    , m_network(new QNetworkAccessManager(this))
{
    connect(m_network, &QNetworkAccessManager::finished, this, &client::got_reply);
    QLoggingCategory::setFilterRules(QStringLiteral("qt.network.ssl.warning=false"));
}

client::~client() = default;

bool client::setup(const QString& app_hash, const QByteArray& client_id, quint64 session_nonce, const QByteArray& client_key,
    bool offline)
{
    m_app_hash = app_hash;
    m_client_id = client_id;
    m_session_nonce = session_nonce;
    m_client_key = client_key;
    m_offline = offline;
    if (m_offline) {
        if (load_offline_database())
            log(blackbox::information, "Successfully loaded %i firmware records", int(m_firmware_db.size()));
        else
            log(blackbox::error, "Failed to load the firmware database");
    }
    return true;
}

void client::set_server(const QHostAddress& address, uint16_t port)
{
    m_server_address = address;
    m_server_port = port;
}

bool client::load_offline_database()
{
    QFile list(offline_list_file);
    if (!list.exists()) {
        log(blackbox::warning, "File \"%s\" not found: no offline functionality", qPrintable(offline_list_file));
        return false;
    }
    if (!list.open(QIODevice::ReadOnly | QIODevice::Text)) {
        log(blackbox::error, "Can't open firmwares file \"%s\": there will be no offline functionality available",
            qPrintable(offline_list_file));
        return false;
    }
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    QTextStream in(&list);
    while (!in.atEnd()) {
        const QString line = in.readLine();
        const QStringList tokens = line.split(blanks, Qt::SkipEmptyParts);
        if (tokens.size() < 4) {
            log(blackbox::error, "Invalid token count for \"%s\": got %i, expected 4", qPrintable(line), int(tokens.size()));
            continue;
        }
        QFile firmware(tokens[1]);
        if (!firmware.open(QIODevice::ReadOnly)) {
            log(blackbox::error, "Unable to open firmware file \"%s\" for reading", qPrintable(tokens[1]));
            continue;
        }
        QCryptographicHash md5(QCryptographicHash::Md5);
        md5.addData(&firmware);
        const offline_record record { tokens[1], QString::fromLatin1(md5.result().toHex()), tokens[2].toInt(), tokens[3] };
        m_firmware_db.insert(tokens[0], record);
        m_firmware_paths.insert(record.firmware, record.path);
    }
    return true;
}

bool client::identity_usable() const
{
    // Without a full identity nothing can be sealed; pieces stay empty and the service refuses.
    return m_client_id.size() == 8 && m_client_key.size() == 32;
}

QString client::sealed_hex(const QByteArray& plain, const QByteArray& key) const
{
    if (!identity_usable())
        return {};
    return QString::fromLatin1(delivery::seal(plain, key).toHex());
}

QString client::session_text() const
{
    return sealed_hex(delivery::session_plain(m_client_id, m_session_nonce).toLatin1(), m_client_key);
}

QByteArray client::query_text(const device_query& device) const
{
    if (device.type != 1)
        return {};
    QJsonObject dev {
        { QStringLiteral("type"), 1 },
        { QStringLiteral("hardware"), device.hardware },
        { QStringLiteral("version"), device.version },
        { QStringLiteral("build_date"), device.build_date },
        { QStringLiteral("mac"), device.mac },
        { QStringLiteral("address"), device.address },
        { QStringLiteral("port"), device.port },
    };
    QJsonObject query {
        { QStringLiteral("version"), 3 },
        { QStringLiteral("app"), QJsonObject { { QStringLiteral("hash"), m_app_hash } } },
        { QStringLiteral("device"), dev },
        { QStringLiteral("request"), QJsonObject { { QStringLiteral("flags"), device.flags } } },
    };
    return QJsonDocument(query).toJson();
}

QUrl client::url_of(const queued_data& request) const
{
    const QString base = m_server_address.isNull()
        ? default_base_url
        : QStringLiteral("http://%1:%2/").arg(m_server_address.toString()).arg(m_server_port);
    const QString serial = sealed_hex(request.serial.toLatin1(), delivery::serial_key(m_client_id));
    switch (request.type) {
    case update:
        return QUrl(base
            + QStringLiteral("update/%1/%2/%3/")
                  .arg(request.session, serial, sealed_hex(query_text(request.device), delivery::query_key(m_client_id))));
    case file:
        return QUrl(base
            + QStringLiteral("file/%1/%2/%3")
                  .arg(request.session, serial, sealed_hex(request.version.toLatin1(), delivery::version_key(m_client_id))));
    case confirm:
        return QUrl(base + QStringLiteral("confirm/%1/%2/").arg(request.session, serial));
    default:
        return {};
    }
}

bool client::check_update(const QString& serial, const device_query& device)
{
    if (m_offline) {
        static const QRegExp pattern(QStringLiteral("^V\\d\\.\\d{2}\\.R\\d{2}\\.(\\w{8}\\.\\d{2}).*$"));
        update_resp resp;
        QRegExp matcher(pattern);
        if (!matcher.exactMatch(device.version) || matcher.captureCount() < 1 || matcher.cap(1).isEmpty()) {
            resp.resp = QStringLiteral("no_binding");
        } else if (!m_firmware_db.contains(matcher.cap(1))) {
            resp.resp = QStringLiteral("denied");
        } else {
            const offline_record& record = m_firmware_db[matcher.cap(1)];
            resp.resp = QStringLiteral("pending");
            resp.firmware << update_resp::offer { record.firmware, record.type, record.sdk_type };
        }
        emit update_found(serial, resp);
        return true;
    }
    queued_data request;
    request.type = update;
    request.serial = serial;
    request.device = device;
    request.session = session_text();
    enqueue(request);
    return true;
}

bool client::request_file(const QString& serial, const QString& version)
{
    if (m_offline) {
        QFile firmware(m_firmware_paths.value(version));
        if (!firmware.open(QIODevice::ReadOnly)) {
            log(blackbox::error, "Unable to open firmware file \"%s\" for reading data", qPrintable(firmware.fileName()));
            emit file_received(version, QByteArray());
            return false;
        }
        emit file_received(version, firmware.readAll());
        return true;
    }
    queued_data request;
    request.type = file;
    request.serial = serial;
    request.version = version;
    request.session = session_text();
    enqueue(request);
    return true;
}

bool client::confirm_update(const QString& serial)
{
    if (m_offline) {
        emit confirmed(serial);
        return true;
    }
    queued_data request;
    request.type = confirm;
    request.serial = serial;
    request.session = session_text();
    enqueue(request);
    return true;
}

void client::enqueue(queued_data request)
{
    if (m_disabled) {
        request.finished = true;
        emit canceled(request);
        return;
    }
    m_queue.append(std::move(request));
    send_next();
}

void client::send_next()
{
    if (m_busy || m_queue.isEmpty())
        return;
    m_busy = true;
    QNetworkRequest request(url_of(m_queue.constFirst()));
    // Qt's own clock, restarted by every byte: a service that hangs mid-file is caught too.
    request.setTransferTimeout(m_timeout_ms);
    m_network->get(request);
}

void client::fail(error_codes code, uint descriptive)
{
    // The next request goes on the wire before the failure is told.
    queued_data head = m_queue.takeFirst();
    head.finished = true;
    m_busy = false;
    send_next();
    emit failed(head, code, descriptive);
}

void client::finish_head()
{
    if (!m_queue.isEmpty())
        m_queue.removeFirst();
    m_busy = false;
    send_next();
}

void client::got_reply(QNetworkReply* reply)
{
    if (m_queue.isEmpty()) {
        reply->deleteLater();
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        // The transfer time-out is the only abort this client knows.
        if (reply->error() == QNetworkReply::OperationCanceledError)
            log(blackbox::error, "No data from the service for %d s: the request is given up", m_timeout_ms / 1000);
        reply->deleteLater();
        fail(transport_error, 0);
        return;
    }
    const QByteArray body = reply->readAll();
    reply->deleteLater();

    if (body.size() < 16) {
        if (body.startsWith("E:"))
            fail(server_error, body.mid(2).toUInt());
        else
            fail(malformed_data, 0);
        return;
    }

    const queued_data head = m_queue.constFirst();
    switch (head.type) {
    case confirm: {
        const QByteArray plain = delivery::unseal(QByteArray::fromHex(body), delivery::serial_key(m_client_id));
        const int end = plain.indexOf('\0');
        if ((end < 0 ? plain : plain.left(end)) == "OK")
            emit confirmed(head.serial);
        else
            fail(not_confirmed, 0);
        break;
    }
    case file:
        emit file_received(head.version, delivery::unseal(body, delivery::file_key(m_client_id, m_session_nonce)));
        break;
    case update: {
        const QByteArray plain = delivery::unseal(QByteArray::fromHex(body), delivery::version_key(m_client_id));
        const QJsonObject answer = QJsonDocument::fromJson(plain).object();
        update_resp resp;
        resp.resp = answer.value(QStringLiteral("resp")).toString();
        if (resp.resp != QLatin1String("updated")) {
            const QJsonArray updates = answer.value(QStringLiteral("updates")).toArray();
            for (const QJsonValue& element : updates) {
                const QJsonObject o = element.toObject();
                const QJsonValue sdk = o.value(QStringLiteral("sdk_type"));
                resp.firmware << update_resp::offer { o.value(QStringLiteral("firmware")).toString(),
                    o.value(QStringLiteral("type")).toInt(0), sdk.isNull() ? QString() : sdk.toString() };
            }
        }
        emit update_found(head.serial, resp);
        break;
    }
    default:
        break;
    }
    // After a refused confirm this takes the request that the failure path already sent: kept as it is.
    finish_head();
}

QString client::server_error_text(uint32_t code, bool english)
{
    switch (code) {
    case 1:
    case 2: return english ? QStringLiteral("query format error") : QStringLiteral("Ошибка формата запроса данных");
    case 3:
    case 4:
    case 5:
    case 10: return english ? QStringLiteral("internal server error") : QStringLiteral("Внутренняя ошибка сервера");
    case 6: return english ? QStringLiteral("denied") : QStringLiteral("Доступ запрещён");
    case 9: return english ? QStringLiteral("device not registered") : QStringLiteral("Устройство не зарегистрировано");
    case 11: return english ? QStringLiteral("device not yours") : QStringLiteral("Нет прав на устройство");
    case 12: return english ? QStringLiteral("group unavailable") : QStringLiteral("Недоступная группа прошивок");
    case 13:
        return english ? QStringLiteral("invalid hardware revision")
                       : QStringLiteral("Невозможно определить аппаратную ревизию устройства по переданным параметрам");
    default: return english ? QStringLiteral("generic error") : QStringLiteral("Общая ошибка");
    }
}

QString client::error_text(int code)
{
    switch (code) {
    case transport_error: return QCoreApplication::translate("error_codes", "Connection error");
    case malformed_data: return QCoreApplication::translate("error_codes", "Malformed response data");
    case server_error: return QCoreApplication::translate("error_codes", "General server error");
    case not_confirmed:
        return QCoreApplication::translate("error_codes", "Can't confirm the device firmware upgrade to the service");
    default: return QCoreApplication::translate("error_codes", "Unknown error %1").arg(code);
    }
}

QString client::error_short_text(int code)
{
    switch (code) {
    case transport_error: return QStringLiteral("connection error");
    case malformed_data: return QStringLiteral("malformed data");
    case server_error: return QStringLiteral("server error");
    case not_confirmed: return QStringLiteral("can't confirm the update");
    default: return QStringLiteral("unknown error %1").arg(code);
    }
}

QString client::kind_text(uint32_t type)
{
    switch (type) {
    case update: return QStringLiteral("update");
    case file: return QStringLiteral("file");
    case confirm: return QStringLiteral("confim");
    default: return {};
    }
}
