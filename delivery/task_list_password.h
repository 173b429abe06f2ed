#pragma once

#include <QString>

// The password column of exported task lists: sealed under task_list_key, in Base64.
// These are what the program hands to tasks::task_list_file as its password codec.
namespace delivery {

// UTF-8 bytes, sealed, as Base64 text; empty when sealing fails.
QString encrypt_task_list_password(const QString& plain);
// Latin-1 bytes, Base64-decoded, unsealed, up to the first NUL; empty when it doesn't open.
QString decrypt_task_list_password(const QString& column);

} // namespace delivery
