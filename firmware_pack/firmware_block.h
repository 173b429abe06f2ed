#pragma once

#include "firmware_pack/block_v3.h"
#include "firmware_pack/element.h"

#include <QByteArray>
#include <QVector>

namespace firmware_pack
{

// A firmware file in a version 3 pack: its elements, in any order, looked up by tag.
struct firmware_block final : block_v3 {
    firmware_block()
        : block_v3(firmware)
    {
    }

    // First element with this tag, or nullptr.
    const element* find(quint16 tag) const;
    // As find, but raises not_found.
    const element& get(quint16 tag) const;

    // Kind, length (the elements' stored sizes summed), element count, elements.
    QByteArray serialize() const;

    QVector<element> elements;
};

} // namespace firmware_pack
