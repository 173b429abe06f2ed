#pragma once

#include "sdk/callback_registry.h"
#include "sdk/device_library.h"
#include "sdk/prototype.h"

#include <QMutex>

#include <functional>

namespace sdk {

// What the two backends over closed device libraries share. They do one thing, flash a
// file, as a short list of stages that the library's callback drives forward; every other
// operation is refused. No step queue and no thread of their own: stages run on the
// owner's thread, progress is emitted from the library's threads.
class library_backend : public prototype
{
    Q_OBJECT
public:
    enum stage_code : int { stage_login = 0, stage_upgrade = 2 };

    // What a flash progress message (13006) reports, and whether it ends the upgrade stage.
    struct progress
    {
        flash_progress_type stage;
        uint current;
        uint total;
        bool ends;
    };
    static progress translate(int p1, int p2, int p3);

    // What all workers of one library share in the process: the library, the maps that
    // route its callbacks, and whether it has been initialised.
    struct process_state
    {
        process_state(const QString& name, std::initializer_list<const char*> symbols)
            : library(name, symbols)
        {
        }

        device_library library;
        callback_registry registry;
        QMutex init_mutex; // guards initialised
        bool initialised = false;
    };

    ~library_backend() override;
    Q_DISABLE_COPY_MOVE(library_backend)

    QStringList operations() const override;
    int uses_sdk_session(const QString& task_name) const override;
    void clean_up() override;
    bool needs_temporary_file() const override { return true; }

public slots:
    // An empty path flashes the temporary file. Always true: trouble comes by signal.
    bool upgrade_firmware_file(const QString& path) override;
    bool identify() override { return true; }
    bool await_device(const QHostAddress& address, float seconds) override;
    bool change_ip(const QHostAddress& address, const QHostAddress& mask) override;
    bool change_port(const QString& kind, uint16_t port) override;
    bool change_subnet(const QHostAddress& mask) override;
    bool set_dhcp(bool enable) override;
    bool fix_device(bool force) override;
    bool upgrade_firmware(const QByteArray& data) override;
    bool import_configuration(const QString& path) override;
    bool reboot() override;
    bool reset_configuration(const parameters& args) override;
    bool set_language(const QString& language) override;
    bool execute(const QString& name, const QVariantList& arguments, bool queued, bool with_client, bool with_login,
        bool with_done) override;

protected:
    // Throws creating_exception when the library can't be loaded.
    library_backend(sdk::type kind, process_state& state, QObject* parent);

    // Runs the library's own initialisation unless an earlier worker succeeded with it.
    bool init_library(const std::function<bool()>& call);
    // One of the library's functions, of the type given.
    template <typename F>
    F function(const char* name) const
    {
        return m_state.library.function<F>(name);
    }

    // Starts a stage on the owner's thread.
    virtual void run_stage(int code) = 0;
    bool run_step(const step& s) override;

    // Leaves the first stage and starts the one after it, if any.
    void next_stage();
    // A stage that couldn't start: its failure report, and no stage runs after it.
    void fail_stage(int code);
    // The id of a log-in: this worker's callback replaces any other of its ident.
    void bind_login(int id);
    // The id of a started upgrade.
    void bind_upgrade(int id);
    // The library's messages to this worker; runs on the library's threads.
    int on_sdk_message(int id, int message, int p1, int p2, int p3);

    QString m_firmware_path;
    int m_sdk_id = 0;

private:
    void run_first_stage();
    callback_registry::handler message_handler();

    process_state& m_state;
    QMutex m_stages_mutex; // guards m_stages: messages read it on the library's threads
    QList<int> m_stages;
};

} // namespace sdk
