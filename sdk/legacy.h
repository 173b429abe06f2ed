#pragma once

#include "sdk/prototype.h"

class dvr_networking;

namespace sdk {

// The backend that talks to a device with the program's own NETIP client, and
// changes network settings by broadcast so that devices on a foreign subnet can be reached.
class legacy final : public prototype
{
    Q_OBJECT
public:
    explicit legacy(QObject* parent = nullptr);
    ~legacy() override;

    QStringList operations() const override;
    int uses_sdk_session(const QString& task_name) const override;
    bool init(const QString& ident, const device& dev) override;

    // The word tried second when the configured password isn't accepted.
    static void set_factory_password(const QString& password);
    static QString factory_password();

public slots:
    bool change_ip(const QHostAddress& address, const QHostAddress& mask) override;
    bool change_port(const QString& kind, uint16_t port) override;
    bool change_subnet(const QHostAddress& mask) override;
    bool set_dhcp(bool enable) override;
    bool upgrade_firmware_file(const QString& path) override;
    bool fix_device(bool force) override;
    bool upgrade_firmware(const QByteArray& data) override;
    bool import_configuration(const QString& path) override;
    bool reboot() override;
    bool identify() override;
    bool reset_configuration(const parameters& args) override;
    bool set_language(const QString& language) override;
    bool await_device(const QHostAddress& address, float seconds) override;
    bool execute(const QString& name, const QVariantList& arguments, bool queued, bool with_client, bool with_login,
        bool with_done) override;

protected:
    bool run_step(const step& s) override;

private:
    bool op_login();
    bool op_identify();
    bool op_change_ip(const QHostAddress& address, const QHostAddress& mask);
    bool op_change_port(const QString& kind, uint16_t port);
    bool op_change_subnet(const QHostAddress& mask);
    bool op_change_transfer_policy(const QString& policy);
    bool op_dhcp(bool enable);
    bool op_fix(bool force);
    bool op_import_configuration(const QString& path);
    bool op_reboot();
    bool op_reset_configuration(bool network_only);
    bool op_set_language(const QString& language);
    bool op_await(const QHostAddress& address, float seconds);
    bool op_upgrade_firmware(const QByteArray& data);
    bool op_upgrade_firmware_file(const QString& path);
    bool broadcast_config(const SDK_CONFIG_NET_COMMON_V2& record);
    void fail(int code, const QString& text);

    dvr_networking& client();

    dvr_networking* m_client = nullptr;
};

} // namespace sdk
