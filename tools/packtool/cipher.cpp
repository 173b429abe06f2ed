#include "tools/packtool/cipher.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <memory>

namespace packtool::cipher
{

namespace
{

    constexpr int block = 16;
    constexpr int filler = 80;

    using context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

    const unsigned char* u(const QByteArray& b)
    {
        return reinterpret_cast<const unsigned char*>(b.constData());
    }

    QByteArray run(
        bool encrypting, const QByteArray& in, const QByteArray& key, const QByteArray& iv, bool pad, bool* ok)
    {
        if (ok)
            *ok = false;
        if (key.size() != 32 || iv.size() != block)
            return {};
        context ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
        if (!ctx || EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, u(key), u(iv), encrypting ? 1 : 0) != 1)
            return {};
        EVP_CIPHER_CTX_set_padding(ctx.get(), pad ? 1 : 0);
        QByteArray out(in.size() + 2 * block, '\0');
        int n = 0;
        int last = 0;
        auto* o = reinterpret_cast<unsigned char*>(out.data());
        if (EVP_CipherUpdate(ctx.get(), o, &n, u(in), in.size()) != 1
            || EVP_CipherFinal_ex(ctx.get(), o + n, &last) != 1)
            return {};
        out.resize(n + last);
        if (ok)
            *ok = true;
        return out;
    }

} // namespace

QByteArray random_bytes(int count)
{
    QByteArray out(count, '\0');
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
    const QByteArray iv = random_bytes(block);
    const QByteArray tail = random_bytes(filler);
    if (iv.isEmpty() || tail.isEmpty())
        return {};
    const QByteArray c = encrypt(plain, key, iv);
    return c.isEmpty() ? QByteArray() : c + iv + tail;
}

QByteArray unseal(const QByteArray& frame, const QByteArray& key, bool* ok)
{
    if (ok)
        *ok = false;
    // The smallest frame is one cipher block, the IV and the filler, and all frames are whole blocks.
    if (frame.size() < 2 * block + filler || frame.size() % block)
        return {};
    const int cipher_size = frame.size() - block - filler;
    return decrypt(frame.left(cipher_size), key, frame.mid(cipher_size, block), ok);
}

QByteArray make_target_record(const QByteArray& serial, const QByteArray& key)
{
    if (serial.isEmpty() || serial.size() > 31)
        return {};
    QByteArray padded = serial;
    padded.append(QByteArray(31 - serial.size(), '\0'));
    const QByteArray iv = random_bytes(block);
    const QByteArray c = encrypt(padded, key, iv);
    if (iv.isEmpty() || c.size() != 2 * block)
        return {};
    QByteArray record(48, '\0');
    for (int k = 0; k < block; ++k) {
        record[3 * k] = c[k];
        record[3 * k + 1] = c[block + k];
        record[47 - 3 * k] = iv[k];
    }
    return record;
}

QByteArray open_target_record(const QByteArray& record, const QByteArray& key)
{
    if (record.size() != 48)
        return {};
    QByteArray c(2 * block, '\0');
    QByteArray iv(block, '\0');
    for (int k = 0; k < block; ++k) {
        c[k] = record[3 * k];
        c[block + k] = record[3 * k + 1];
        iv[k] = record[47 - 3 * k];
    }
    const QByteArray plain = decrypt(c, key, iv);
    const int end = plain.indexOf('\0');
    return end < 0 ? plain : plain.left(end);
}

} // namespace packtool::cipher
