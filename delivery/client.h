#pragma once

#include "diagnostics/loggable.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QUrl>

#include <algorithm>
#include <cstdint>

class QNetworkAccessManager;
class QNetworkReply;

// The one way to the update service: is there new firmware, give me the file, the
// device was flashed. One request on the wire at a time; everything in the URL path is
// sealed piece by piece. Offline, a local firmware list answers the same questions.
class client final : public QObject, public loggable
{
    Q_OBJECT
public:
    enum error_codes : int { transport_error = -11, malformed_data = -12, server_error = -13, not_confirmed = -14 };
    Q_ENUM(error_codes)

    enum request_type : uint32_t { update = 0, file = 1, confirm = 2 };

    // What the caller knows of a device, reported to the service with the update question.
    struct device_query
    {
        uint32_t type = 0;
        QString hardware;
        QString version;
        QString build_date;
        QString mac;
        QString address;
        uint16_t port = 0;
        uint16_t flags = 0;
    };

    struct queued_data
    {
        uint32_t type = update;
        QString session;
        QString serial;
        QString version;
        device_query device;
        bool finished = false;
    };

    struct update_resp
    {
        struct offer
        {
            QString firmware;
            int32_t type = 0;
            QString sdk_type;
        };
        using firmware_list = QList<offer>;

        QString resp;
        firmware_list firmware;
    };

    // The offline firmware list's record.
    struct offline_record
    {
        QString path;
        QString firmware;
        int32_t type = 0;
        QString sdk_type;
    };

    static inline const QString offline_list_file = QStringLiteral("offline_firmwares.list");
    static inline const QString default_base_url = QStringLiteral("http://update.kelmar.org:8088/");

    explicit client(QObject* parent = nullptr);
    ~client() override;
    Q_DISABLE_COPY_MOVE(client)

    // Stores the identity; offline, loads the local firmware list. Always true.
    bool setup(const QString& app_hash, const QByteArray& client_id, quint64 session_nonce, const QByteArray& client_key,
        bool offline);
    void set_server(const QHostAddress& address, uint16_t port);
    // A request that receives nothing for this long ends as a transport error; 0 waits for good.
    void set_timeout(int seconds) { m_timeout_ms = std::max(0, seconds) * 1000; }
    void set_disabled(bool disabled) { m_disabled = disabled; }
    bool disabled() const { return m_disabled; }
    bool offline() const { return m_offline; }
    QByteArray client_id() const { return m_client_id; }
    quint64 session_nonce() const { return m_session_nonce; }
    int queue_size() const { return m_queue.size(); }

    bool check_update(const QString& serial, const device_query& device);
    bool request_file(const QString& serial, const QString& version);
    bool confirm_update(const QString& serial);

    // The service's error number in words.
    static QString server_error_text(uint32_t code, bool english);
    // Texts of the client's own failure codes: for the user, and short for logs.
    static QString error_text(int code);
    static QString error_short_text(int code);
    // Kind word of a request for the log: "update", "file", "confim".
    static QString kind_text(uint32_t type);

    // The update question as the service reads it; empty unless the device is of type 1.
    QByteArray query_text(const device_query& device) const;
    QUrl url_of(const queued_data& request) const;

signals:
    void failed(const client::queued_data& data, client::error_codes code, uint descriptive);
    void canceled(const client::queued_data& request);
    void update_found(const QString& serial, const client::update_resp& resp);
    void file_received(const QString& version, const QByteArray& data);
    void confirmed(const QString& serial);

private slots:
    void got_reply(QNetworkReply* reply);

private:
    bool load_offline_database();
    QString session_text() const;
    // Hex of a frame over text under a key; empty when the identity can't seal.
    QString sealed_hex(const QByteArray& plain, const QByteArray& key) const;
    bool identity_usable() const;
    void enqueue(queued_data request);
    void send_next();
    void fail(error_codes code, uint descriptive);
    void finish_head();

    QHostAddress m_server_address;
    uint16_t m_server_port = 0;
    int m_timeout_ms = 0;
    QNetworkAccessManager* m_network;
    QList<queued_data> m_queue;
    bool m_busy = false;
    bool m_disabled = false;
    bool m_offline = false;
    QString m_app_hash;
    QByteArray m_client_id;
    QByteArray m_client_key;
    quint64 m_session_nonce = 0;
    QMap<QString, offline_record> m_firmware_db;
    QMap<QString, QString> m_firmware_paths;
};

Q_DECLARE_METATYPE(client::queued_data)
Q_DECLARE_METATYPE(client::update_resp)
Q_DECLARE_METATYPE(client::update_resp::firmware_list)
Q_DECLARE_METATYPE(client::error_codes)
