#pragma once

#include <QByteArray>

namespace svcsim
{

// The framing of every encrypted piece the service sends or reads: AES-256-CBC
// ciphertext with PKCS#7 padding, then its 16-byte IV, then 80 random bytes.
// Both directions return an empty array on any failure.
QByteArray seal(const QByteArray& plain, const QByteArray& key);
QByteArray unseal(const QByteArray& frame, const QByteArray& key);
// Tells an empty plain text from a frame that doesn't open.
bool unseal(const QByteArray& frame, const QByteArray& key, QByteArray* plain);

QByteArray sha256(const QByteArray& data);

// Lower-case hexadecimal with an even number of digits, nothing else; the piece
// of a URL. False leaves `out` untouched.
bool decode_hex(const QByteArray& text, QByteArray* out);

} // namespace svcsim
