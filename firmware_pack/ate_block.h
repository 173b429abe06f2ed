#pragma once

#include "firmware_pack/block_v3.h"

#include <QByteArray>

namespace firmware_pack
{

// The target row of version 3: an encrypted serial and the firmware block meant for it.
struct ate_block final : block_v3 {
    static constexpr int record_size = 48;

    ate_block()
        : block_v3(ate)
    {
    }

    QByteArray target; // 48-byte target record
    quint8 index = 0; // position among the firmware blocks
};

} // namespace firmware_pack
