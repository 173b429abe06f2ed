#pragma once

#include "sdk/library_backend.h"

namespace sdk {

// Flashes a device through the closed XCloud library, loaded at run time. The log-in is
// given 100 ms instead of a reply; the upgrade's progress comes by callback.
class xcloud final : public library_backend
{
    Q_OBJECT
public:
    // Throws creating_exception when the library can't be loaded.
    explicit xcloud(QObject* parent = nullptr);

    // Whether the library loads here.
    static bool library_present();
    // Initialises the library once per process; a refusal is tried again by the next worker.
    bool init(const QString& ident, const device& dev) override;

protected:
    void run_stage(int code) override;
};

} // namespace sdk
