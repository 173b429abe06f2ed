#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <functional>

// The functions a firmware pack or the cache is handed, bound to one service identity:
//   pack = firmware_pack::open(path, c.target_decryptor, c.ident_decryptor);
//   cache.add(ident, data, c.ident_encryptor, c.payload_encryptor, nonce);
//   cache.extract(ident, c.payload_decryptor);
namespace delivery
{

struct pack_crypto {
    // 48-byte target record: split, then AES under target_key with the record's own IV.
    std::function<QByteArray(const QByteArray&)> target_decryptor;
    // unseal / seal under version_key.
    std::function<QByteArray(const QByteArray&)> ident_decryptor;
    std::function<QByteArray(const QByteArray&)> ident_encryptor;
    // seal / unseal under file_key(client_id, session).
    std::function<QByteArray(const QByteArray&, quint64)> payload_encryptor;
    std::function<QByteArray(const QByteArray&, quint64)> payload_decryptor;
};

// The client id is asked for at each call, so the functions follow a change of identity.
pack_crypto make_pack_crypto(std::function<QByteArray()> client_id);
pack_crypto make_pack_crypto(const QByteArray& client_id);

} // namespace delivery
