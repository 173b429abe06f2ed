#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <functional>

// The cryptography a pack is handed: the format classes hold no key, the caller binds one.
// Every function gives an empty array when it fails.
namespace firmware_pack
{

// 48-byte target record to the serial's bytes (NUL-padded).
using target_decryptor = std::function<QByteArray(const QByteArray& record)>;
// Ident frame to the ident's UTF-8 bytes.
using ident_decryptor = std::function<QByteArray(const QByteArray& frame)>;
// Ident's UTF-8 bytes to a frame whose size is a multiple of 16.
using ident_encryptor = std::function<QByteArray(const QByteArray& plain)>;
// Firmware to a frame whose size is a multiple of 16, under the key of that session.
using payload_encryptor = std::function<QByteArray(const QByteArray& plain, quint64 session)>;
// Payload frame back to the firmware, under the key of the session stored beside it.
using payload_decryptor = std::function<QByteArray(const QByteArray& frame, quint64 session)>;

} // namespace firmware_pack
