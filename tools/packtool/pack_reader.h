#pragma once

#include "tools/common/service_identity.h"
#include "tools/packtool/pack_contents.h"

#include <QByteArray>
#include <QString>

namespace packtool
{

// Parses a whole file image of either version, strictly: any field that runs past the end,
// an unknown block kind or a frame that doesn't open is an error naming its offset.
class pack_reader
{
public:
    explicit pack_reader(tools::service_identity keys);

    bool read(const QByteArray& image, pack_contents* out, QString* error) const;

private:
    bool read_v2(const QByteArray& image, pack_contents* out, QString* error) const;
    bool read_v3(const QByteArray& image, pack_contents* out, QString* error) const;
    // Decrypted target or ident, or an error at offset.
    bool open_target(const QByteArray& record, qint64 offset, QString* serial, QString* error) const;
    bool open_ident(const QByteArray& frame, qint64 offset, QString* ident, QString* error) const;

    tools::service_identity m_keys;
};

} // namespace packtool
