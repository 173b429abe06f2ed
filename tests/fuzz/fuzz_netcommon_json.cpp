#include "netip/dvr_networking.h"

#include <QString>

#include <cstddef>
#include <cstdint>

// Qt 5.15's JSON parser leaks the containers of duplicate keys ({"a":{},"a":{}}): not ours to
// find here. Leaks of this program's own allocations have no Qt frame and are still reported.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libQt5Core.so\n";
}

// Discovery replies and configuration bodies come from devices: any text must convert or be refused.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    bool text_values = false;

    SDK_CONFIG_NET_COMMON_V2 v2;
    if (dvr_networking::json_to_netcommon_v2(text, v2, text_values)) {
        QJsonObject object;
        dvr_networking::netcommon_to_json(v2, object);
    }
    SDK_CONFIG_NET_COMMON_V3 v3;
    dvr_networking::json_to_netcommon_v3(text, v3, text_values);

    location_config location;
    if (dvr_networking::json_to_location(text, location))
        dvr_networking::location_to_json(location);
    return 0;
}
