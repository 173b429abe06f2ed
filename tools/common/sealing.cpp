#include "tools/common/sealing.h"

#include <QCryptographicHash>

#include <memory>

#include <openssl/evp.h>
#include <openssl/rand.h>

namespace tools
{

namespace
{

    constexpr int block = 16;
    constexpr int key_size = 32;
    constexpr int filler_size = 80;
    // IV and filler behind the ciphertext.
    constexpr int tail_size = block + filler_size;
    // The smallest frame: one block of padding, IV and filler.
    constexpr int min_frame = block + tail_size;

    using cipher_context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

    cipher_context new_context()
    {
        return cipher_context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    }

    const unsigned char* bytes(const QByteArray& a)
    {
        return reinterpret_cast<const unsigned char*>(a.constData());
    }

    QByteArray run(bool encrypting, const QByteArray& in, const QByteArray& key, const QByteArray& iv, bool pad, bool* ok)
    {
        if (ok)
            *ok = false;
        if (key.size() != key_size || iv.size() != block)
            return {};
        cipher_context ctx = new_context();
        if (!ctx || EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, bytes(key), bytes(iv), encrypting ? 1 : 0) != 1)
            return {};
        EVP_CIPHER_CTX_set_padding(ctx.get(), pad ? 1 : 0);
        QByteArray out(in.size() + 2 * block, Qt::Uninitialized);
        auto* o = reinterpret_cast<unsigned char*>(out.data());
        int written = 0;
        int last = 0;
        if (EVP_CipherUpdate(ctx.get(), o, &written, bytes(in), in.size()) != 1
            || EVP_CipherFinal_ex(ctx.get(), o + written, &last) != 1)
            return {};
        out.resize(written + last);
        if (ok)
            *ok = true;
        return out;
    }

} // namespace

QByteArray random_bytes(int count)
{
    QByteArray out(count, Qt::Uninitialized);
    if (RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), count) != 1)
        return {};
    return out;
}

QByteArray encrypt(const QByteArray& plain, const QByteArray& key, const QByteArray& iv, bool pad)
{
    return run(true, plain, key, iv, pad, nullptr);
}

QByteArray decrypt(const QByteArray& cipher, const QByteArray& key, const QByteArray& iv, bool* ok)
{
    return run(false, cipher, key, iv, true, ok);
}

QByteArray seal(const QByteArray& plain, const QByteArray& key)
{
    if (key.size() != key_size)
        return {};
    // Padding always adds between 1 and 16 bytes.
    const int cipher_size = plain.size() + block - plain.size() % block;
    // The frame is built in place, so a large file is copied only once.
    QByteArray frame(cipher_size + tail_size, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(frame.data());
    unsigned char* iv = out + cipher_size;
    if (RAND_bytes(iv, tail_size) != 1)
        return {};

    cipher_context ctx = new_context();
    int written = 0;
    int last = 0;
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, bytes(key), iv) != 1
        || EVP_EncryptUpdate(ctx.get(), out, &written, bytes(plain), plain.size()) != 1
        || EVP_EncryptFinal_ex(ctx.get(), out + written, &last) != 1 || written + last != cipher_size)
        return {};
    return frame;
}

QByteArray unseal(const QByteArray& frame, const QByteArray& key)
{
    QByteArray plain;
    return unseal(frame, key, &plain) ? plain : QByteArray();
}

bool unseal(const QByteArray& frame, const QByteArray& key, QByteArray* plain_out)
{
    if (frame.size() < min_frame || key.size() != key_size)
        return false;
    // Read where the sender put it for a well-formed frame; a frame whose size
    // isn't a multiple of 16 then fails on its ciphertext length.
    const int iv_offset = ((frame.size() / block) - 6) * block;
    const int cipher_size = frame.size() - tail_size;

    QByteArray plain(cipher_size + block, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(plain.data());
    cipher_context ctx = new_context();
    int written = 0;
    int last = 0;
    if (!ctx || EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, bytes(key), bytes(frame) + iv_offset) != 1
        || EVP_DecryptUpdate(ctx.get(), out, &written, bytes(frame), cipher_size) != 1
        || EVP_DecryptFinal_ex(ctx.get(), out + written, &last) != 1)
        return false;
    plain.truncate(written + last);
    *plain_out = plain;
    return true;
}

QByteArray sha256(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256);
}

bool decode_hex(const QByteArray& text, QByteArray* out)
{
    if (text.size() % 2 != 0)
        return false;
    for (const char c : text) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    }
    *out = QByteArray::fromHex(text);
    return true;
}

} // namespace tools
