#pragma once

#include "diagnostics/loggable.h"
#include "tasks/device.h"
#include "tasks/mac.h"

#include <QByteArray>
#include <QMap>
#include <QMutex>
#include <QThread>

#include <atomic>

class QUdpSocket;

// Finds NETIP devices by UDP broadcast and tracks them by MAC: found when first heard,
// lost when a pass goes by without them.
class scanner final : public QThread, public loggable
{
    Q_OBJECT
public:
    static constexpr uint16_t discovery_port = 34569;
    static constexpr uint16_t discovery_request = 1530;
    static constexpr int minimum_reply = 100;
    static constexpr int reply_wait_ms = 1000;
    // Asked of the kernel for the pass's socket (it may grant less): a LAN's devices answer
    // all at once, and replies that find the queue full are lost.
    static constexpr int reply_buffer_bytes = 4 * 1024 * 1024;

    explicit scanner(QObject* parent = nullptr);
    ~scanner() override;
    Q_DISABLE_COPY_MOVE(scanner)

    // Both starts do nothing while a run is under way.
    void start_single_pass();
    // Passes until this many devices are known, stop() is called or a send fails.
    void start_for_count(quint64 count);
    // Takes effect between passes.
    void stop();
    bool is_running() const { return isRunning(); }
    bool is_autostop() const { return !m_single_pass; }
    QMap<mac, device> devices() const;

    // The 20-byte discovery datagram.
    static QByteArray discovery_datagram();
    // Rewrites numbers written with leading zeros (": 034567,") so the text is JSON.
    static QString repair_numbers(const QString& text);
    // A device from a reply's text; false when it isn't a NetCommon object.
    bool parse_device(const QString& text, device& out) const;
    // Binds a pass's socket to the discovery port, with room for a LAN's replies.
    static void open_reply_socket(QUdpSocket& socket);

signals:
    void device_found(const mac& address, const device& dev);
    void device_lost(const mac& address);
    void done(bool interrupted);

protected:
    void run() override;

private:
    bool pass();
    bool count_reached() const;

    std::atomic<quint64> m_wanted_count { 0 };
    std::atomic<bool> m_stop_requested { false };
    std::atomic<bool> m_single_pass { true };
    mutable QMutex m_known_mutex; // guards m_known
    QMap<mac, device> m_known;
};
