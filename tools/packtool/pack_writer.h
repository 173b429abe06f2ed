#pragma once

#include "tools/common/service_identity.h"
#include "tools/packtool/pack_plan.h"

#include <QByteArray>
#include <QString>

namespace packtool
{

// Lays a plan out as a version 2 or 3 file image, encrypting under the service keys.
class pack_writer
{
public:
    explicit pack_writer(tools::service_identity keys);

    // The whole file; empty with a reason when the plan can't be written.
    QByteArray write(const pack_plan& plan, QString* error) const;

private:
    // A firmware's ident and payload frames under a fresh session.
    struct sealed_firmware {
        quint64 session = 0;
        QString ident;
        QByteArray ident_frame;
        QByteArray payload_frame;
    };

    // False with a reason when encryption fails.
    bool seal_firmware(const QByteArray& data, sealed_firmware* out, QString* error) const;
    // False with a reason for a serial the record can't hold.
    bool target_record(const QString& serial, QByteArray* record, QString* error) const;
    QByteArray header(const pack_plan& plan, int blocks) const;
    QByteArray body_v2(const pack_plan& plan, QString* error) const;
    QByteArray body_v3(const pack_plan& plan, QString* error) const;

    tools::service_identity m_keys;
};

} // namespace packtool
