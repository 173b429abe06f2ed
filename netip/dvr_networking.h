#pragma once

#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <vector>

#include "diagnostics/loggable.h"
#include "netip/location_config.h"
#include "netip/net_common.h"
#include "netip/packet.h"

class QTcpSocket;

// NETIP client of one device: owns the socket and the session number, and blocks the calling
// thread in every operation. Lives on one worker thread for one queue of operations.
// Transport failures never leave it: they end as a false result and a log line.
class dvr_networking final : public QObject, public loggable
{
    Q_OBJECT
public:
    // Firmware upload (messages 1520 to 1524): the stages given to the progress callback, the
    // reader that hands out the image (offset 0 and size 0 ask for its size), and the callback.
    enum upgrade_task_progress_type { sending = 1, upgrading = 2 };
    using firmware_reader = std::function<bool(char*& buffer, const uint64_t& offset, uint64_t& size)>;
    using progress_callback = std::function<void(const upgrade_task_progress_type&, const unsigned char& percent)>;

    explicit dvr_networking(QObject* parent = nullptr);
    ~dvr_networking() override;
    Q_DISABLE_COPY_MOVE(dvr_networking)

    // Waits up to 2000 ms for the connection.
    bool connect_to(const QString& host, uint16_t port);
    bool close();
    // The hash the device expects at login; no plain password is ever sent.
    static QString encrypt_password(const QString& plain);
    // Up to three attempts on the same connection. Three attempts that each ended in a
    // transport failure count as done: *ret (the last "Ret" seen) tells of a refused password.
    bool login(const QString& user, const QString& password_hash, uint16_t* ret = nullptr);
    bool system_info(QString& serial, QString& hardware, QString& version, QString& build);
    bool get_net_common(SDK_CONFIG_NET_COMMON_V2& record);
    bool set_net_common(const SDK_CONFIG_NET_COMMON_V2& record);
    bool get_location(location_config& record);
    bool set_location(const location_config& record);
    bool reboot();
    // `sections` is a bit set: 1 General, 2 Encode, ... 512 CameraPARAM. A device that goes
    // silent within 1000 ms has begun to reset, and that counts as success.
    bool reset_configuration(int32_t sections);
    // Sends {"Name":"NetWork.DHCP"} alone; the interface list is built and dropped.
    bool set_dhcp(bool enable);
    // Sends a configuration file (at most 32768 bytes) as message 1540; success is "Ret" 603.
    bool import_configuration(const QString& path);
    // Sends a firmware image in 32768-byte chunks, one in flight, then follows the device's
    // progress until it reports the image written (Ret 515).
    bool upgrade(const firmware_reader& reader, const progress_callback& progress);
    // A reader over an image in memory; it shares the bytes, copying only the chunk asked for.
    static firmware_reader reader_of(const QByteArray& image);

    // 0 until the first accepted reply, then that reply's session.
    uint32_t session() const { return m_session; }

    // Fills `record` from the "NetWork.NetCommon" object of `text` (kept in `document`).
    // `text_values` becomes true when TransferPlan or MonMode came as text rather than numbers.
    template <typename T>
    static bool common_json_to_netcommon_X(const QString& text, T& record, QJsonDocument& document, bool& text_values);
    // As above, then "SN".
    static bool json_to_netcommon_v2(const QString& text, SDK_CONFIG_NET_COMMON_V2& record, bool& text_values);
    // As above, then "Username" and "Password".
    static bool json_to_netcommon_v3(const QString& text, SDK_CONFIG_NET_COMMON_V3& record, bool& text_values);
    // The inner "NetWork.NetCommon" object as the device takes it; false when HostName or MAC isn't UTF-8.
    static bool netcommon_to_json(const SDK_CONFIG_NET_COMMON_V2& record, QJsonObject& object);
    // Reads the "General.Location" object of `text`.
    static bool json_to_location(const QString& text, location_config& record);
    // The inner "General.Location" object; list indices outside their list write its first entry.
    static QJsonObject location_to_json(const location_config& record);

private:
    // What travels up as a thrown int from send and wait_reply to try_exchange.
    enum transport_failure : int { write_failed = -1, no_reply = -2, read_failed = -3 };

    static constexpr int connect_ms = 2000;
    static constexpr int written_ms = 30000;
    static constexpr int reply_ms = 15000;
    static constexpr int reset_reply_ms = 1000;
    static constexpr int login_attempts = 3;

    // Compact JSON as the payload; a bad packet when it doesn't fit.
    netip::packet build_request(uint16_t message_id, const QJsonDocument& document) const;
    // Writes and waits for the first reply bytes (timeout 0 means 15000 ms); throws.
    bool send(netip::packet& packet, int timeout_ms);
    // After a write: waits for it to leave and for the first reply bytes; throws no_reply.
    bool await_reply(uint16_t message_id, int timeout_ms);
    // Reads until a reply under `expected_id` (0: any) carries ok_code or 603; throws.
    bool wait_reply(uint16_t expected_id, uint16_t ok_code, netip::packet* reply, uint16_t* ret);
    // send and wait_reply for the reply under the request's id plus one; lets the int pass.
    bool exchange(netip::packet& packet, uint16_t ok_code, netip::packet* reply, uint16_t* ret, int timeout_ms);
    // exchange with ok_code 100; a thrown code lands in *excode and gives false.
    bool try_exchange(netip::packet& packet, netip::packet* reply, uint16_t* ret, int32_t* excode, int timeout_ms);
    // One chunk (numbered from 1) from the reader, acknowledged by the device.
    bool send_chunk(const firmware_reader& reader, uint32_t chunk_number);
    // Reads one packet and its return code; throws read_failed.
    void read_reply(uint16_t& message_id, uint16_t& code);
    // Builds a 1040 request from a {"Name": name, name: inner} document and exchanges it.
    bool set_config(const QString& name, const QJsonObject& inner);
    // Sends {"Name": name} as 1042 and returns the reply body up to its first NUL.
    bool get_config(const QString& name, QString& text);

    QTcpSocket* m_socket;
    uint32_t m_session = 0;
    // One firmware chunk framed in place, header and payload, reused chunk after chunk.
    std::vector<char> m_frame;
};
