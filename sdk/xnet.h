#pragma once

#include "sdk/library_backend.h"

namespace sdk {

// Flashes a device through the closed XNet library, loaded at run time. The upgrade starts
// when the library reports the log-in done; no time limit of the program's own applies.
class xnet final : public library_backend
{
    Q_OBJECT
public:
    // Throws creating_exception when the library can't be loaded.
    explicit xnet(QObject* parent = nullptr);

    // Whether the library loads here.
    static bool library_present();
    // Initialises the library once per process; a refusal is tried again by the next worker.
    bool init(const QString& ident, const device& dev) override;

protected:
    void run_stage(int code) override;
};

} // namespace sdk
