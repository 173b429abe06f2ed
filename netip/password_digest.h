#pragma once

#include <QByteArray>

namespace netip {

// The login hash a device compares with its stored password (the vendor library's MD5Encrypt):
// the MD5 of the bytes, each of its eight byte pairs summed modulo 62 into [0-9A-Za-z].
// Always eight characters.
QByteArray password_digest(const QByteArray& plain);

} // namespace netip
