#include "tools/devsim/login_digest.h"

#include <QCryptographicHash>

namespace devsim
{

QString login_digest(const QString& password)
{
    static const char alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const QByteArray md5 = QCryptographicHash::hash(password.toUtf8(), QCryptographicHash::Md5);
    QString out;
    for (int i = 0; i < 8; ++i) {
        const int sum = quint8(md5[2 * i]) + quint8(md5[2 * i + 1]);
        out += QLatin1Char(alphabet[sum % 62]);
    }
    return out;
}

} // namespace devsim
