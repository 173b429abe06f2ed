#include "netip/password_digest.h"

#include <QCryptographicHash>

namespace netip {

QByteArray password_digest(const QByteArray& plain)
{
    static const char alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const QByteArray md5 = QCryptographicHash::hash(plain, QCryptographicHash::Md5);
    QByteArray out(8, '\0');
    for (int i = 0; i < 8; ++i) {
        const unsigned sum = uint8_t(md5.at(2 * i)) + uint8_t(md5.at(2 * i + 1));
        out[i] = alphabet[sum % 62];
    }
    return out;
}

} // namespace netip
