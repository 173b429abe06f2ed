#include "delivery/pack_crypto.h"

#include "delivery/crypto.h"

namespace delivery
{

pack_crypto make_pack_crypto(std::function<QByteArray()> client_id)
{
    pack_crypto c;
    c.target_decryptor = [client_id](const QByteArray& record) {
        const target_parts parts = split_target_record(record);
        if (parts.cipher.isEmpty())
            return QByteArray();
        return aes_decrypt(parts.cipher, target_key(client_id()), parts.iv).data;
    };
    c.ident_decryptor = [client_id](const QByteArray& frame) { return unseal(frame, version_key(client_id())); };
    c.ident_encryptor = [client_id](const QByteArray& plain) { return seal(plain, version_key(client_id())); };
    c.payload_encryptor
        = [client_id](const QByteArray& plain, quint64 session) { return seal(plain, file_key(client_id(), session)); };
    c.payload_decryptor = [client_id](const QByteArray& frame, quint64 session) {
        return unseal(frame, file_key(client_id(), session));
    };
    return c;
}

pack_crypto make_pack_crypto(const QByteArray& client_id)
{
    return make_pack_crypto([client_id] { return client_id; });
}

} // namespace delivery
