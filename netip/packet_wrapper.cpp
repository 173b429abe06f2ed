#include "netip/packet_wrapper.h"

#include <QTcpSocket>

#include <array>
#include <cstdint>

#include "diagnostics/blackbox.h"
#include "diagnostics/log_categories.h"
#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet.h"

namespace {

constexpr char parent_ident[] = "netip";
constexpr char ident[] = "packet wrapper";
constexpr size_t frame_limit = netip::packet::header_size + netip::packet::max_payload;

bool report_read_failure(const char* text)
{
    write_sub(parent_ident, ident, blackbox::error, "Could not read from socket: %s", text);
    return false;
}

} // namespace

bool packet_wrapper::read_up_to(QTcpSocket* socket, char* dst, size_t wanted)
{
    if (wanted == 0)
        return true;
    size_t remaining = wanted;
    size_t offset = 0;
    int budget = read_attempts;
    for (;;) {
        if (!socket->isOpen())
            return false;
        // Read first, wait only when nothing came: asking how much is there would cost a
        // system call per read on an unbuffered socket.
        int32_t count = int32_t(socket->read(dst + offset, qint64(remaining)));
        if (count == 0 && socket->waitForReadyRead(attempt_ms))
            count = int32_t(socket->read(dst + offset, qint64(remaining)));
        if (budget == 1)
            return false;
        --budget;
        if (count == 0)
            continue;
        // Compared with the whole request, so the read that completes a slow transfer is reported too.
        if (count < 0 || size_t(count) < wanted) {
            write_sub(parent_ident, ident, blackbox::warning, "Got %i bytes, expected %lu", count,
                static_cast<unsigned long>(wanted));
            if (count < 0)
                return false;
        }
        if (size_t(count) == remaining)
            return true;
        offset += size_t(count);
        remaining -= size_t(count);
    }
}

bool packet_wrapper::read_from(QTcpSocket* socket, netip::packet& packet, uint16_t* ret)
{
    std::array<char, frame_limit> buffer;
    if (!read_up_to(socket, buffer.data(), netip::packet::header_size))
        return report_read_failure("Header reading failed");
    const uint32_t size = netip::packet::detect_payload_size(buffer.data(), netip::packet::header_size);
    if (size == 0)
        return report_read_failure("Header size detecting failure");
    // No device is expected to send more; the stream can't be trusted after such a header.
    if (size > netip::packet::max_payload)
        return report_read_failure("Payload size over the limit");
    if (!read_up_to(socket, buffer.data() + netip::packet::header_size, size))
        return report_read_failure("Payload reading failed");
    const size_t total = netip::packet::header_size + size;
    packet.parse(buffer.data(), total);
    qCDebug(lc_netip, "<<< %s", QByteArray(buffer.data(), int(total)).toHex(' ').constData());

    const uint16_t code = jsonaux::check_ret(packet);
    const QByteArray ret_text = code == netip::ret_missing ? QByteArray("---") : netip::describe_return_code(code);
    write_sub(parent_ident, ident, blackbox::debug, "[<<<] Received %li bytes, %s (%s)", long(total),
        netip::describe_message(packet.message_id).constData(), ret_text.constData());
    if (ret)
        *ret = code;
    return true;
}

bool packet_wrapper::write_to(QTcpSocket* socket, const netip::packet& packet)
{
    // Left uninitialised: serialize() writes every byte that goes out, and clearing 32 KiB
    // per chunk shows in a fleet's upload.
    std::array<char, frame_limit> buffer;
    size_t size = buffer.size();
    const long total = long(packet.length) + long(netip::packet::header_size);
    if (!packet.serialize(buffer.data(), &size)) {
        write_sub(parent_ident, ident, blackbox::error, "Failed to serialize the packet: %lu/%li",
            static_cast<unsigned long>(size), total);
        return false;
    }
    return write_frame(socket, buffer.data(), size, packet.message_id);
}

bool packet_wrapper::write_frame(QTcpSocket* socket, const char* frame, size_t size, uint16_t message_id)
{
    if (socket->write(frame, qint64(size)) < qint64(size))
        return false;
    qCDebug(lc_netip, ">>> %s", QByteArray(frame, int(size)).toHex(' ').constData());
    write_sub(parent_ident, ident, blackbox::debug, "[>>>] Sent %li bytes, %s", long(size),
        netip::describe_message(message_id).constData());
    return true;
}
