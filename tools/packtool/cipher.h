#pragma once

#include <QByteArray>
#include <QString>

// The tool's own AES-256-CBC over OpenSSL EVP, written apart from the program's so that
// a mistake in the format can't hide on both sides. Every call gives an empty array on failure.
namespace packtool::cipher
{

QByteArray random_bytes(int count);

// PKCS#7 padding on or off; key 32 bytes, IV 16.
QByteArray encrypt(const QByteArray& plain, const QByteArray& key, const QByteArray& iv, bool pad = true);
// Empty also for a padding that doesn't check out; ok tells an empty plain text apart.
QByteArray decrypt(const QByteArray& cipher, const QByteArray& key, const QByteArray& iv, bool* ok = nullptr);

// Frame: ciphertext, its IV, 80 random bytes.
QByteArray seal(const QByteArray& plain, const QByteArray& key);
QByteArray unseal(const QByteArray& frame, const QByteArray& key, bool* ok = nullptr);

// 48-byte target record: a serial of at most 31 bytes, NUL-padded to two AES blocks,
// interleaved with its IV (cipher k at 3k, cipher 16+k at 3k+1, IV k at 47-3k).
QByteArray make_target_record(const QByteArray& serial, const QByteArray& key);
// The serial up to the first NUL; empty when the record doesn't open.
QByteArray open_target_record(const QByteArray& record, const QByteArray& key);

} // namespace packtool::cipher
