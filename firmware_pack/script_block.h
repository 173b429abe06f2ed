#pragma once

#include "firmware_pack/block_v3.h"
#include "firmware_pack/element.h"

namespace firmware_pack
{

// A script carried by a pack: one byte beside one "Payload"-tagged element of text.
struct script_block final : block_v3 {
    script_block()
        : block_v3(script)
    {
    }

    quint8 value = 0;
    bool has_element = false; // false when the element didn't read or had another tag
    element text_element; // the script, UTF-8 up to the first NUL
};

} // namespace firmware_pack
