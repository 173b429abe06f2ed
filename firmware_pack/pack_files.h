#pragma once

#include "firmware_pack/crypto_functions.h"

#include <QString>

#include <memory>

namespace firmware_pack
{

class pack;

// A pack_v2 or pack_v3, loaded. Null when the file can't be read, its magic isn't "FFCF" or
// its version is neither 2 nor 3; otherwise the object comes back even when loading failed,
// and its error() tells why.
std::shared_ptr<pack> open(const QString& path, const target_decryptor& targets, const ident_decryptor& idents);

// Writes the header of a new, empty cache (kind 1) of version 2 or 3, replacing any file there.
bool create(const QString& path, quint8 version);

// The file exists and the current user may read it.
bool usable(const QString& path);

} // namespace firmware_pack
