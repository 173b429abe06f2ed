#pragma once

#include "tasks/device.h"
#include "tasks/parameters.h"
#include "tasks/sdk_type.h"

#include <QHostAddress>
#include <QList>
#include <QMutex>
#include <QThread>
#include <QVariantList>

class QTemporaryFile;

namespace sdk {

// The worker of one device and one task line. Operations queue numbered steps; the
// thread works the queue off and reports by signals, which reach the core queued.
class prototype : public QThread
{
    Q_OBJECT
public:
    enum class flash_progress_type : int {
        misinterpreted = 0,
        failure,
        sending,
        sending_complete,
        upgrading,
        upgrading_complete,
        done
    };
    Q_ENUM(flash_progress_type)

    enum step_code : int {
        step_await = 1,
        step_change_ip = 2,
        step_change_port = 3,
        step_change_subnet = 4,
        step_change_transfer_policy = 5,
        step_destroy_client = 6,
        step_dhcp = 7,
        step_emit_done = 8,
        step_identify = 9,
        step_fix = 10,
        step_import_configuration = 11,
        step_create_client = 12,
        step_login = 13,
        step_close = 14,
        step_reboot = 15,
        step_reset_configuration = 16,
        step_set_language = 17,
        step_flash_memory = 18,
        step_flash_file = 19,
    };

    struct step
    {
        int code = 0;
        QVariantList args;
        quint64 batch = 0; // the enqueue call it came with
    };

    // Builds the backend of a type; throws creating_exception for anything but 1, 2, 3, and
    // for 2 and 3 when their library can't be loaded.
    static prototype* create(int type);

    explicit prototype(sdk::type kind, QObject* parent = nullptr);
    ~prototype() override;
    Q_DISABLE_COPY_MOVE(prototype)

    sdk::type kind() const { return m_type; }
    const QString& ident() const { return m_ident; }
    device current_device() const;

    // Appends create-client/login/step/close/destroy/done as asked and has the thread started.
    void enqueue(const step& s, bool with_client, bool with_login, bool with_done);
    QList<int> queued_codes() const;

    // Writes firmware to a fresh temporary file; with verify, reads it back and throws on a mismatch.
    bool write_temporary_file(const QByteArray& data, bool verify);
    QString temporary_file_name() const;
    void set_parameter(const QString& key, const QVariant& value);

    virtual QStringList operations() const = 0;
    virtual int uses_sdk_session(const QString& task_name) const = 0;
    virtual bool init(const QString& ident, const device& dev);
    virtual void update_device(const device& dev);
    virtual void clean_up() { }
    virtual bool needs_temporary_file() const { return false; }

public slots:
    virtual bool change_ip(const QHostAddress& address, const QHostAddress& mask) = 0;
    virtual bool change_port(const QString& kind, uint16_t port) = 0;
    virtual bool change_subnet(const QHostAddress& mask) = 0;
    virtual bool set_dhcp(bool enable) = 0;
    virtual bool upgrade_firmware_file(const QString& path) = 0;
    virtual bool fix_device(bool force) = 0;
    virtual bool upgrade_firmware(const QByteArray& data) = 0;
    virtual bool import_configuration(const QString& path) = 0;
    virtual bool reboot() = 0;
    virtual bool identify() = 0;
    virtual bool reset_configuration(const parameters& args) = 0;
    virtual bool set_language(const QString& language) = 0;
    virtual bool await_device(const QHostAddress& address, float seconds) = 0;
    virtual bool execute(const QString& name, const QVariantList& arguments, bool queued, bool with_client,
        bool with_login, bool with_done)
        = 0;

signals:
    void done(const QString& ident);
    void failed(const QString& ident, signed int error, const QString& description);
    void data_available(const QString& ident, const parameters& p);
    void flash_progress(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total);
    void status_update(const QString& ident, const QString& status);

protected:
    void run() override;
    // Drops every step still waiting; the one running finishes. Derived destructors call it
    // before waiting, so a deleted worker doesn't work off a long queue first.
    void stop_queue();
    // One step on the worker thread; false ends the queue. The base handles "emit done".
    virtual bool run_step(const step& s);
    void remove_temporary_file();

    // The device as the steps see it; written by init/update_device between queues.
    device m_device;
    QString m_ident;
    parameters m_parameters;

private:
    // The next step, and the newest batch queued when it was taken.
    bool take_next(step& out, quint64& newest);
    // After a failure: drops the steps of that batch and of those queued before the step ran.
    void drop_through(quint64 batch);

    sdk::type m_type;
    QTemporaryFile* m_temporary_file = nullptr;
    mutable QMutex m_queue_mutex; // guards m_queue, m_current and m_active
    QList<step> m_queue;
    step m_current;
    bool m_active = false;
    quint64 m_batch = 0;
    bool m_first_use = true;
};

} // namespace sdk

Q_DECLARE_METATYPE(sdk::prototype::flash_progress_type)
