#include "app/caps.h"

#include "app/fixed_names.h"
#include "sdk/xcloud.h"
#include "sdk/xnet.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>

namespace caps {

parameters table()
{
    parameters t;
    // Supported only where the closed library is really there to load.
    t.insert(QStringLiteral("xc_support"), sdk::xcloud::library_present());
    t.insert(QStringLiteral("xn_support"), sdk::xnet::library_present());
    t.insert(QStringLiteral("offline_upgrade"), false);
    t.insert(QStringLiteral("pack_diag"), false);
    QFile library(QStringLiteral("XNetSDK.dll"));
    if (library.open(QIODevice::ReadOnly)) {
        QCryptographicHash md5(QCryptographicHash::Md5);
        md5.addData(&library);
        t.insert(QStringLiteral("xnlib_main_md5"), QString::fromLatin1(md5.result().toHex()));
    }
    return t;
}

QString text(bool multi_line)
{
    const parameters t = table();
    QStringList parts;
    for (auto it = t.cbegin(); it != t.cend(); ++it)
        parts << QStringLiteral("%1: %2").arg(it.key(), it.value().toString());
    return parts.join(multi_line ? QStringLiteral("\n") : QStringLiteral(", "));
}

QString version_text()
{
    return QCoreApplication::translate("caps", "%1.%2, build #%3")
        .arg(fixed_names::version_major)
        .arg(fixed_names::version_minor)
        .arg(fixed_names::version_build);
}

QString platform_text()
{
    return QCoreApplication::translate("caps", "Linux 64 bit");
}

} // namespace caps
