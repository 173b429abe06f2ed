#pragma once

#include <QString>

namespace devsim
{

// The eight-character password digest a NETIP client sends in "PassWord": each
// character is picked from a 62-letter alphabet by the sum of two MD5 bytes.
QString login_digest(const QString& password);

} // namespace devsim
