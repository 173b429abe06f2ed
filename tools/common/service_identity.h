#pragma once

#include <QByteArray>
#include <QString>

namespace tools
{

// The service's side of a client identity: the 8-byte client_id, the 32-byte
// client_key that opens session texts, and the purpose keys derived from the
// id's lower-case hexadecimal text. Packs need the id alone.
class service_identity
{
public:
    service_identity() = default;
    service_identity(const QByteArray& client_id, const QByteArray& client_key);
    // From 16 hexadecimal digits and, unless key_hex is null, 64 more for the key;
    // false with a reason otherwise.
    static bool from_hex(const QString& id_hex, const QString* key_hex, service_identity* out, QString* error);

    bool valid() const { return m_client_id.size() == 8 && m_client_key.size() == 32; }
    const QByteArray& client_id() const { return m_client_id; }
    const QByteArray& client_key() const { return m_client_key; }
    // 16 lower-case hexadecimal digits.
    const QString& id_hex() const { return m_id_hex; }

    // Serial pieces of URLs and the confirm answer.
    const QByteArray& serial_key() const { return m_serial_key; }
    // Version pieces of URLs and the update answer.
    const QByteArray& version_key() const { return m_version_key; }
    // The query piece of update URLs.
    const QByteArray& query_key() const { return m_query_key; }
    // Target records of packs.
    const QByteArray& target_key() const { return m_target_key; }
    // Firmware files sent in the run that drew this nonce.
    QByteArray file_key(quint64 nonce) const;
    // "<id hex>|<decimal nonce>": what a session text holds.
    QString session_plain(quint64 nonce) const;

private:
    QByteArray key_of(const QString& text) const;

    QByteArray m_client_id;
    QByteArray m_client_key;
    QString m_id_hex;
    QByteArray m_serial_key;
    QByteArray m_version_key;
    QByteArray m_query_key;
    QByteArray m_target_key;
};

} // namespace tools
