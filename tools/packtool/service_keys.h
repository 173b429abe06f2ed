#pragma once

#include <QByteArray>
#include <QString>

namespace packtool
{

// The keys a pack is made under, all derived from the service's 8-byte client_id: the SHA-256
// of texts built from its lower-case hexadecimal form. Packs need no client_key.
class service_keys
{
public:
    // From 16 hexadecimal digits; false with a reason otherwise.
    static bool from_hex(const QString& id_hex, service_keys* out, QString* error);

    const QString& id_hex() const { return m_hex; }
    // Ident frames.
    QByteArray version_key() const;
    // Target records.
    QByteArray target_key() const;
    // Payload frames of one session.
    QByteArray file_key(quint64 session) const;

private:
    QString m_hex;
};

} // namespace packtool
