#pragma once

#include <cstddef>
#include <cstdint>

class QTcpSocket;

namespace netip {
class packet;
}

// Moves whole NETIP packets over a QTcpSocket, blocking the calling thread without an
// event loop. Failures are a false result and a log line.
class packet_wrapper final
{
public:
    packet_wrapper() = delete;

    // Exactly `wanted` bytes, within 500 read attempts of 10 ms each (about five seconds in all,
    // progress doesn't refill the budget). Bytes read by a failed call are lost.
    static bool read_up_to(QTcpSocket* socket, char* dst, size_t wanted);
    // One header and its payload. A header announcing no payload, or more than 32768 bytes,
    // is refused after it has been consumed. The reply's "Ret" (jsonaux::check_ret) goes to
    // *ret when asked for: it is read for the log line anyway.
    static bool read_from(QTcpSocket* socket, netip::packet& packet, uint16_t* ret = nullptr);
    static bool write_to(QTcpSocket* socket, const netip::packet& packet);
    // A frame already serialized, header and payload in one piece, written as one.
    static bool write_frame(QTcpSocket* socket, const char* frame, size_t size, uint16_t message_id);

    static constexpr int read_attempts = 500;
    static constexpr int attempt_ms = 10;
};
