#include "tools/svcsim/identity.h"

#include <QRegularExpression>

#include "tools/svcsim/sealing.h"

namespace svcsim
{

identity::identity(const QByteArray& client_id, const QByteArray& client_key)
    : m_client_id(client_id)
    , m_client_key(client_key)
    , m_id_hex(QString::fromLatin1(client_id.toHex()))
{
    const QString& h = m_id_hex;
    m_serial_key = key_of(h + h.mid(1, 6));
    m_version_key = key_of(h + h.mid(2, 4));
    m_query_key = key_of(h + h.mid(3, 2));
}

bool identity::from_hex(const QString& id_hex, const QString& key_hex, identity* out, QString* error)
{
    static const QRegularExpression id_form(QStringLiteral("^[0-9a-fA-F]{16}$"));
    static const QRegularExpression key_form(QStringLiteral("^[0-9a-fA-F]{64}$"));
    if (!id_form.match(id_hex).hasMatch()) {
        *error = QStringLiteral("client_id must be 16 hexadecimal digits, got \"%1\"").arg(id_hex);
        return false;
    }
    if (!key_form.match(key_hex).hasMatch()) {
        *error = QStringLiteral("client_key must be 64 hexadecimal digits");
        return false;
    }
    *out = identity(QByteArray::fromHex(id_hex.toLatin1()), QByteArray::fromHex(key_hex.toLatin1()));
    return true;
}

QByteArray identity::file_key(quint64 nonce) const
{
    return key_of(session_plain(nonce));
}

QString identity::session_plain(quint64 nonce) const
{
    return m_id_hex + QLatin1Char('|') + QString::number(nonce);
}

QByteArray identity::key_of(const QString& text) const
{
    return sha256(text.toLatin1());
}

} // namespace svcsim
