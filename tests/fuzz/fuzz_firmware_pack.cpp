#include "delivery/pack_crypto.h"
#include "firmware_pack/pack.h"
#include "firmware_pack/pack_files.h"
#include "firmware_pack/pack_v2.h"
#include "firmware_pack/pack_v3.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace
{

// Pack files come from anywhere a user puts them: no input may crash, hang or make the
// reader allocate more than the file holds.
const QByteArray client_id = QByteArray::fromHex("0011223344556677");

// Pass-through "cipher": lets the fuzzer reach every structure behind the idents and targets,
// which real keys would stop at the first frame.
QByteArray pass(const QByteArray& data)
{
    return data;
}

QByteArray pass_session(const QByteArray& data, quint64)
{
    return data;
}

void exercise(firmware_pack::pack& p, const firmware_pack::payload_decryptor& decrypt,
    const firmware_pack::ident_encryptor& encrypt_ident, const firmware_pack::payload_encryptor& encrypt_payload)
{
    for (const auto& target : p.targets()) {
        const QString ident = p.ident_at(target.second);
        p.contains(ident);
        p.sdk_type(ident);
        p.extract(ident, decrypt);
    }
    for (int i = 0; i < 256; ++i)
        p.extract(p.ident_at(quint8(i)), decrypt);
    p.describe();
    if (p.error() == 0)
        p.add(QStringLiteral("0123456789abcdef0123456789abcdef"), QByteArray(16, 'f'), encrypt_ident, encrypt_payload,
            42);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/fuzz_firmware_pack-XXXXXX"));
    static const delivery::pack_crypto crypto = delivery::make_pack_crypto(client_id);
    const QString path = dir.filePath(QStringLiteral("input.ovpack"));
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));

    auto write = [&] {
        QFile file(path);
        return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(input) == input.size();
    };

    if (!write())
        return 0;
    if (auto p = firmware_pack::open(path, crypto.target_decryptor, crypto.ident_decryptor))
        exercise(*p, crypto.payload_decryptor, crypto.ident_encryptor, crypto.payload_encryptor);

    // Both classes on every input, whatever its version byte says.
    if (!write())
        return 0;
    firmware_pack::pack_v2 v2;
    v2.load(path, pass, pass);
    exercise(v2, pass_session, pass, pass_session);
    if (!write())
        return 0;
    firmware_pack::pack_v3 v3;
    v3.load(path, pass, pass);
    exercise(v3, pass_session, pass, pass_session);
    return 0;
}
