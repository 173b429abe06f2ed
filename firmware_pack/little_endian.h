#pragma once

#include <QByteArray>
#include <QtEndian>

// Fixed-width little-endian fields of the pack format, read from and appended to byte arrays.
namespace firmware_pack::little_endian
{

// The caller has checked that offset + sizeof(T) lies inside data.
template <typename T> T at(const QByteArray& data, int offset)
{
    return qFromLittleEndian<T>(data.constData() + offset);
}

template <typename T> void append(QByteArray& data, T value)
{
    char raw[sizeof(T)];
    qToLittleEndian<T>(value, raw);
    data.append(raw, int(sizeof(T)));
}

} // namespace firmware_pack::little_endian
