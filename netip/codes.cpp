#include "netip/codes.h"

namespace netip {

namespace {

QByteArray unknown(uint16_t code)
{
    return "-unknown[" + QByteArray::number(code) + "]-";
}

} // namespace

QByteArray describe_message(uint16_t code)
{
    static const char request[] = " request";
    static const char response[] = " response";
    struct entry
    {
        uint16_t code;
        const char* name;
        const char* suffix;
    };
    static const entry table[] = {
        { 999, "Login", request },
        { 1000, "Login", response },
        { 1001, "Logout", request },
        { 1020, "System info", request },
        { 1021, "System info", response },
        { 1040, "Config set", request },
        { 1041, "Config set", response },
        { 1042, "Config get", request },
        { 1043, "Config get", response },
        { 1450, "System manager", request },
        { 1451, "System manager", response },
        { 1488, "Modify password", request },
        { 1520, "Upgrade", request },
        { 1521, "Upgrade", response },
        { 1522, "Upgrade data", "" },
        { 1523, "Upgrade data", response },
        { 1524, "Upgrade progress", "" },
        { 1525, "Upgrade info", request },
        { 1526, "Upgrade info", response },
        { 1540, "Config import", request },
        { 1541, "Config import", response },
    };
    for (const entry& e : table) {
        if (e.code == code)
            return QByteArray(e.name) + e.suffix;
    }
    return unknown(code);
}

QByteArray describe_return_code(uint16_t code)
{
    switch (code) {
    case 100:
        return "OK";
    case 203:
        return "Incorrect password";
    case 205:
        return "User is locked";
    case 206:
        return "User blacklisted";
    case 512:
        return "Did not start the upgrade";
    case 514:
        return "l level failure";
    case 603:
        return "Need to reboot the system";
    case 607:
        return "Configuration does not exist";
    case 608:
        return "Configuration parsing error";
    default:
        return unknown(code);
    }
}

} // namespace netip
