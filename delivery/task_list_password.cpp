#include "delivery/task_list_password.h"

#include "delivery/crypto.h"

namespace delivery {

QString encrypt_task_list_password(const QString& plain)
{
    const QByteArray frame = seal(plain.toUtf8(), task_list_key());
    return QString::fromLatin1(frame.toBase64());
}

QString decrypt_task_list_password(const QString& column)
{
    const QByteArray plain = unseal(QByteArray::fromBase64(column.toLatin1()), task_list_key());
    const int end = plain.indexOf('\0');
    return QString::fromUtf8(end < 0 ? plain : plain.left(end));
}

} // namespace delivery
