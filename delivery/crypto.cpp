#include "delivery/crypto.h"

#include <QCryptographicHash>
#include <QFile>

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <limits>
#include <memory>

namespace delivery {

namespace {

constexpr int block_size = 16;
constexpr int key_size = 32;
constexpr int filler_size = 80;
constexpr int frame_tail = block_size + filler_size;
constexpr int target_record_size = 48;

using cipher_context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

// The callers always pass 32 and 16 bytes; the check only keeps a stray short buffer
// from being read past its end.
bool usable(const QByteArray& key, const QByteArray& iv)
{
    return key.size() == key_size && iv.size() == block_size;
}

const unsigned char* bytes(const QByteArray& data)
{
    return reinterpret_cast<const unsigned char*>(data.constData());
}

unsigned char* bytes(QByteArray& data)
{
    return reinterpret_cast<unsigned char*>(data.data());
}

QByteArray sha256_of(const QString& text)
{
    return QCryptographicHash::hash(text.toLatin1(), QCryptographicHash::Sha256);
}

QString hex_of(const QByteArray& id)
{
    return QString::fromLatin1(id.toHex());
}

} // namespace

random_result random_blocks(uint64_t count)
{
    if (count > uint64_t(std::numeric_limits<int>::max() / block_size))
        return {};
    QByteArray data(int(count) * block_size, Qt::Uninitialized);
    if (RAND_bytes(bytes(data), data.size()) != 1)
        return {};
    return { data, true };
}

random_result random_block()
{
    return random_blocks(1);
}

crypt_result aes_encrypt(const QByteArray& plain, const QByteArray& key, const QByteArray& iv)
{
    cipher_context ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    if (!ctx)
        return { {}, crypt_result::no_context };
    if (!usable(key, iv) || EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, bytes(key), bytes(iv)) != 1)
        return { {}, crypt_result::init_failed };

    // PKCS#7 always adds between 1 and 16 bytes.
    QByteArray out(plain.size() + block_size - plain.size() % block_size, Qt::Uninitialized);
    int written = 0;
    if (EVP_EncryptUpdate(ctx.get(), bytes(out), &written, bytes(plain), plain.size()) != 1)
        return { {}, crypt_result::update_failed };
    int last = 0;
    if (EVP_EncryptFinal_ex(ctx.get(), bytes(out) + written, &last) != 1)
        return { {}, crypt_result::final_failed };
    out.resize(written + last);
    return { out, crypt_result::ok };
}

crypt_result aes_decrypt(const QByteArray& cipher, const QByteArray& key, const QByteArray& iv)
{
    cipher_context ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    if (!ctx)
        return { {}, crypt_result::no_context };
    if (!usable(key, iv) || EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, bytes(key), bytes(iv)) != 1)
        return { {}, crypt_result::init_failed };

    // OpenSSL may hold back a block until the final call, so it wants one block of room more.
    QByteArray out(cipher.size() + block_size, Qt::Uninitialized);
    int written = 0;
    if (EVP_DecryptUpdate(ctx.get(), bytes(out), &written, bytes(cipher), cipher.size()) != 1)
        return { {}, crypt_result::update_failed };
    int last = 0;
    if (EVP_DecryptFinal_ex(ctx.get(), bytes(out) + written, &last) != 1)
        return { {}, crypt_result::final_failed };
    out.resize(written + last);
    return { out, crypt_result::ok };
}

QByteArray seal(const QByteArray& plain, const QByteArray& key)
{
    const random_result iv = random_block();
    const random_result filler = random_blocks(filler_size / block_size);
    if (!iv.ok || !filler.ok)
        return {};
    const crypt_result encrypted = aes_encrypt(plain, key, iv.data);
    if (encrypted.status != crypt_result::ok)
        return {};
    return encrypted.data + iv.data + filler.data;
}

QByteArray unseal(const QByteArray& frame, const QByteArray& key)
{
    const int size = frame.size();
    if (size < block_size + frame_tail)
        return {};
    // The IV is looked for at a block boundary while the ciphertext is cut by length, so a
    // frame of a size that isn't a multiple of 16 never opens. Frames in the field rely on this.
    const QByteArray iv = frame.mid(((size / block_size) - 6) * block_size, block_size);
    const crypt_result plain = aes_decrypt(frame.left(size - frame_tail), key, iv);
    if (plain.status != crypt_result::ok)
        return {};
    return plain.data;
}

QByteArray md5_of_file(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Md5);
    if (!hash.addData(&file) || file.error() != QFileDevice::NoError)
        return {};
    return hash.result();
}

QByteArray serial_key(const QByteArray& id)
{
    const QString h = hex_of(id);
    return sha256_of(h + h.mid(1, 6));
}

QByteArray version_key(const QByteArray& id)
{
    const QString h = hex_of(id);
    return sha256_of(h + h.mid(2, 4));
}

QByteArray query_key(const QByteArray& id)
{
    const QString h = hex_of(id);
    return sha256_of(h + h.mid(3, 2));
}

QByteArray target_key(const QByteArray& id)
{
    const QString h = hex_of(id);
    return sha256_of(h + h.mid(1, 2) + h.mid(5, 2));
}

QByteArray file_key(const QByteArray& id, uint64_t nonce)
{
    return sha256_of(session_plain(id, nonce));
}

QString session_plain(const QByteArray& id, uint64_t nonce)
{
    return hex_of(id) + QLatin1Char('|') + QString::number(nonce);
}

target_parts split_target_record(const QByteArray& record)
{
    if (record.size() != target_record_size)
        return {};
    target_parts parts { QByteArray(2 * block_size, Qt::Uninitialized), QByteArray(block_size, Qt::Uninitialized) };
    for (int k = 0; k < block_size; ++k) {
        parts.cipher[k] = record[3 * k];
        parts.cipher[block_size + k] = record[3 * k + 1];
        parts.iv[k] = record[target_record_size - 1 - 3 * k];
    }
    return parts;
}

QByteArray task_list_key()
{
    return QByteArray::fromHex("7e41c09ab2d35f68104ea7c3d96f2b81e05a4dc7381f96b2ac07d4e13b58f62d");
}

} // namespace delivery
