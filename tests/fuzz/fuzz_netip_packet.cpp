#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet.h"

#include <QByteArray>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

// Qt 5.15's JSON parser leaks the containers of duplicate keys ({"a":{},"a":{}}): not ours to
// find here. Leaks of this program's own allocations have no Qt frame and are still reported.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libQt5Core.so\n";
}

// Frames come from devices: whatever the bytes, parsing and reading the return code must hold.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* bytes = reinterpret_cast<const char*>(data);
    netip::packet::detect_payload_size(bytes, size);

    netip::packet fresh;
    if (fresh.parse(bytes, size)) {
        const uint16_t ret = jsonaux::check_ret(fresh);
        netip::describe_message(fresh.message_id);
        netip::describe_return_code(ret);
        fresh.well_formed();
        const netip::packet copy(fresh);
        if (!(copy == fresh))
            __builtin_trap();
        if (fresh.length <= netip::packet::max_payload) {
            std::vector<char> out(fresh.length + netip::packet::header_size);
            size_t out_size = out.size();
            if (!fresh.serialize(out.data(), &out_size))
                __builtin_trap();
        }
    }

    // A packet that already holds a payload takes the reallocation path, or keeps its buffer.
    const size_t first = size ? data[0] : 0;
    netip::packet held(netip::msg_config_get, bytes, std::min(size, first));
    if (held.parse(bytes, size))
        jsonaux::check_ret(held);
    return 0;
}
