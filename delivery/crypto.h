#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

// AES-256-CBC over OpenSSL and the frame every encrypted piece of data travels in:
// ciphertext, then its 16-byte IV, then 80 bytes of random filler.
// Stateless and thread-safe; nothing here throws or logs: failure is an empty result or a status.
namespace delivery {

struct crypt_result
{
    enum status_code : int32_t { ok = 0, no_context = 2, init_failed = 3, update_failed = 4, final_failed = 5 };

    QByteArray data; // empty on failure
    int32_t status = ok;
};

struct random_result
{
    QByteArray data;
    bool ok = false;
};

struct target_parts
{
    QByteArray cipher; // 32 bytes
    QByteArray iv; // 16 bytes
};

// count * 16 bytes from RAND_bytes.
random_result random_blocks(uint64_t count);
random_result random_block();

// One-shot AES-256-CBC with PKCS#7 padding. The key is 32 bytes and the IV 16.
crypt_result aes_encrypt(const QByteArray& plain, const QByteArray& key, const QByteArray& iv);
// Wrong padding (a wrong key, as a rule) ends in final_failed.
crypt_result aes_decrypt(const QByteArray& cipher, const QByteArray& key, const QByteArray& iv);

// A frame under a fresh random IV and filler; empty when the random source or the cipher fails.
QByteArray seal(const QByteArray& plain, const QByteArray& key);
// Empty for a frame that is too short, of a wrong key or not a multiple of 16 bytes long.
QByteArray unseal(const QByteArray& frame, const QByteArray& key);

// Raw MD5 of the whole file; empty when it can't be read.
QByteArray md5_of_file(const QString& path);

// Purpose keys, derived from the 8-byte client id; computed at each use, never stored.
QByteArray serial_key(const QByteArray& id);
QByteArray version_key(const QByteArray& id);
QByteArray query_key(const QByteArray& id);
QByteArray target_key(const QByteArray& id);
QByteArray file_key(const QByteArray& id, uint64_t nonce);
// "<hex id>|<nonce>": the session text, and the source of file_key.
QString session_plain(const QByteArray& id, uint64_t nonce);

// Undoes the interleaving of a 48-byte target record; both parts empty for any other size.
target_parts split_target_record(const QByteArray& record);

// The fixed key of exported task lists, the same in every build.
QByteArray task_list_key();

} // namespace delivery
