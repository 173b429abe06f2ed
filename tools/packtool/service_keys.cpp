#include "tools/packtool/service_keys.h"

#include <QCryptographicHash>
#include <QRegularExpression>

namespace packtool
{

namespace
{

    QByteArray sha256(const QString& text)
    {
        return QCryptographicHash::hash(text.toLatin1(), QCryptographicHash::Sha256);
    }

} // namespace

bool service_keys::from_hex(const QString& id_hex, service_keys* out, QString* error)
{
    static const QRegularExpression digits(QStringLiteral("^[0-9a-fA-F]{16}$"));
    if (!digits.match(id_hex).hasMatch()) {
        *error = QStringLiteral("client id must be 16 hexadecimal digits, got \"%1\"").arg(id_hex);
        return false;
    }
    out->m_hex = id_hex.toLower();
    return true;
}

QByteArray service_keys::version_key() const
{
    return sha256(m_hex + m_hex.mid(2, 4));
}

QByteArray service_keys::target_key() const
{
    return sha256(m_hex + m_hex.mid(1, 2) + m_hex.mid(5, 2));
}

QByteArray service_keys::file_key(quint64 session) const
{
    return sha256(m_hex + QLatin1Char('|') + QString::number(session));
}

} // namespace packtool
