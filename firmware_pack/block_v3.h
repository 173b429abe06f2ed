#pragma once

#include <QString>
#include <QtGlobal>

namespace firmware_pack
{

// What every version 3 block begins with: its kind and the size of its elements.
struct block_v3 {
    enum kind_code : quint8 { ate = 0, firmware = 1, script = 2 };
    static constexpr int header_size = 5;

    explicit block_v3(quint8 kind = firmware, quint32 length = 0)
        : kind(kind)
        , length(length)
    {
    }
    virtual ~block_v3() = default;

    // "ATE", "Firmware", "Script" or "-Unknown-".
    static QString kind_name(quint8 kind);

    quint8 kind;
    quint32 length; // kept as read; the reader doesn't rely on it
};

} // namespace firmware_pack
