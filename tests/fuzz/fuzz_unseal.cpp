#include "delivery/crypto.h"
#include "delivery/task_list_password.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

// Frames come from the network and from files on disk: no input may crash the reader.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size));
    const QByteArray key = delivery::task_list_key();
    delivery::unseal(input, key);
    delivery::split_target_record(input);
    delivery::decrypt_task_list_password(QString::fromLatin1(input));
    // The cipher calls directly, with key and IV cut from the input at whatever sizes it gives.
    if (size > 48) {
        const QByteArray rest = input.mid(48);
        delivery::aes_decrypt(rest, input.left(32), input.mid(32, 16));
        delivery::aes_encrypt(rest, input.left(int(data[0] % 40)), input.mid(32, int(data[1] % 20)));
    }
    return 0;
}
