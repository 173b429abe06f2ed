#include "tools/common/service_identity.h"

#include <QRegularExpression>

#include "tools/common/sealing.h"

namespace tools
{

service_identity::service_identity(const QByteArray& client_id, const QByteArray& client_key)
    : m_client_id(client_id)
    , m_client_key(client_key)
    , m_id_hex(QString::fromLatin1(client_id.toHex()))
{
    const QString& h = m_id_hex;
    m_serial_key = key_of(h + h.mid(1, 6));
    m_version_key = key_of(h + h.mid(2, 4));
    m_query_key = key_of(h + h.mid(3, 2));
    m_target_key = key_of(h + h.mid(1, 2) + h.mid(5, 2));
}

bool service_identity::from_hex(const QString& id_hex, const QString* key_hex, service_identity* out, QString* error)
{
    static const QRegularExpression id_form(QStringLiteral("^[0-9a-fA-F]{16}$"));
    static const QRegularExpression key_form(QStringLiteral("^[0-9a-fA-F]{64}$"));
    if (!id_form.match(id_hex).hasMatch()) {
        *error = QStringLiteral("client_id must be 16 hexadecimal digits, got \"%1\"").arg(id_hex);
        return false;
    }
    if (key_hex && !key_form.match(*key_hex).hasMatch()) {
        *error = QStringLiteral("client_key must be 64 hexadecimal digits");
        return false;
    }
    *out = service_identity(
        QByteArray::fromHex(id_hex.toLatin1()), key_hex ? QByteArray::fromHex(key_hex->toLatin1()) : QByteArray());
    return true;
}

QByteArray service_identity::file_key(quint64 nonce) const
{
    return key_of(session_plain(nonce));
}

QString service_identity::session_plain(quint64 nonce) const
{
    return m_id_hex + QLatin1Char('|') + QString::number(nonce);
}

QByteArray service_identity::key_of(const QString& text) const
{
    return sha256(text.toLatin1());
}

} // namespace tools
