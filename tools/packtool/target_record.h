#pragma once

#include <QByteArray>

// The 48-byte target record of a pack: a serial of at most 31 bytes, NUL-padded to two AES
// blocks, interleaved with its IV (cipher k at 3k, cipher 16+k at 3k+1, IV k at 47-3k).
namespace packtool
{

QByteArray make_target_record(const QByteArray& serial, const QByteArray& key);
// The serial up to the first NUL; empty when the record doesn't open.
QByteArray open_target_record(const QByteArray& record, const QByteArray& key);

} // namespace packtool
