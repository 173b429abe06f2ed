#include "firmware_pack/block_v3.h"

namespace firmware_pack
{

QString block_v3::kind_name(quint8 kind)
{
    switch (kind) {
    case ate:
        return QStringLiteral("ATE");
    case firmware:
        return QStringLiteral("Firmware");
    case script:
        return QStringLiteral("Script");
    default:
        return QStringLiteral("-Unknown-");
    }
}

} // namespace firmware_pack
