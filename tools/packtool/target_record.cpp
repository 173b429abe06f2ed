#include "tools/packtool/target_record.h"

#include "tools/common/sealing.h"

namespace packtool
{

namespace
{
    constexpr int block = 16;
} // namespace

QByteArray make_target_record(const QByteArray& serial, const QByteArray& key)
{
    if (serial.isEmpty() || serial.size() > 31)
        return {};
    QByteArray padded = serial;
    padded.append(QByteArray(31 - serial.size(), '\0'));
    const QByteArray iv = tools::random_bytes(block);
    const QByteArray c = tools::encrypt(padded, key, iv);
    if (iv.isEmpty() || c.size() != 2 * block)
        return {};
    QByteArray record(48, '\0');
    for (int k = 0; k < block; ++k) {
        record[3 * k] = c[k];
        record[3 * k + 1] = c[block + k];
        record[47 - 3 * k] = iv[k];
    }
    return record;
}

QByteArray open_target_record(const QByteArray& record, const QByteArray& key)
{
    if (record.size() != 48)
        return {};
    QByteArray c(2 * block, '\0');
    QByteArray iv(block, '\0');
    for (int k = 0; k < block; ++k) {
        c[k] = record[3 * k];
        c[block + k] = record[3 * k + 1];
        iv[k] = record[47 - 3 * k];
    }
    const QByteArray plain = tools::decrypt(c, key, iv);
    const int end = plain.indexOf('\0');
    return end < 0 ? plain : plain.left(end);
}

} // namespace packtool
