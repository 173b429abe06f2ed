#pragma once

#include <QByteArray>

// The tools' own AES-256-CBC over OpenSSL EVP, written apart from the program's so that a
// mistake in the framing can't hide on both sides. Every call gives an empty array (or
// false) on failure.
namespace tools
{

QByteArray random_bytes(int count);

// PKCS#7 padding on or off; key 32 bytes, IV 16.
QByteArray encrypt(const QByteArray& plain, const QByteArray& key, const QByteArray& iv, bool pad = true);
// ok tells an empty plain text from a padding that doesn't check out.
QByteArray decrypt(const QByteArray& cipher, const QByteArray& key, const QByteArray& iv, bool* ok = nullptr);

// The framing of every encrypted piece of the service and of packs: ciphertext with
// PKCS#7 padding, then its 16-byte IV, then 80 random bytes.
QByteArray seal(const QByteArray& plain, const QByteArray& key);
QByteArray unseal(const QByteArray& frame, const QByteArray& key);
// Tells an empty plain text from a frame that doesn't open.
bool unseal(const QByteArray& frame, const QByteArray& key, QByteArray* plain);

QByteArray sha256(const QByteArray& data);

// Lower-case hexadecimal with an even number of digits, nothing else; the piece
// of a URL. False leaves `out` untouched.
bool decode_hex(const QByteArray& text, QByteArray* out);

} // namespace tools
