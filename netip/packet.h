#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace netip {

// One NETIP frame: the 20-byte little-endian header as fields, in wire order, and an owned
// payload buffer of `length` bytes (null until a payload is given). A packet whose `head` is
// below 0xFF is "bad": that is the value a failed build returns, and callers test it.
class packet
{
public:
    static constexpr size_t header_size = 20;
    static constexpr size_t max_payload = 32768;

    // head 0xFF, version 1, everything else 0, no payload.
    packet();
    explicit packet(uint16_t message_id);
    // A size over max_payload gives a bad packet and copies nothing.
    packet(uint16_t message_id, const char* data, size_t size);
    // A source holding a buffer with `length` 0 gives a copy with a full max_payload buffer.
    packet(const packet& other);
    packet& operator=(const packet& other);
    packet(packet&& other) noexcept;
    packet& operator=(packet&& other) noexcept;
    virtual ~packet();

    // A default packet with `head` 0.
    static packet make_bad();
    // The `length` field of a raw header; 0 when fewer than 20 bytes are given.
    static uint32_t detect_payload_size(const char* bytes, size_t size);

    bool bad() const;
    // head 0xFF, version at most 1, reserved1 0.
    bool well_formed() const;

    char* data();
    const char* data() const;
    // The payload bytes really held: `length`, or fewer when the buffer is shorter than the header says.
    size_t payload_size() const;

    // Replaces the payload; false (and the old payload kept) for more than max_payload bytes.
    bool assign(const char* data, size_t size);
    // A fresh, uninitialised buffer of `size` bytes; sets `length`.
    void resize_payload(size_t size);
    // Header then payload into `out`; false when *size_in_out is below length + 20, else stores length + 20.
    bool serialize(char* out, size_t* size_in_out) const;
    // The 20 header bytes alone into `out`, for a payload that is framed elsewhere.
    void serialize_header(char* out) const;
    // Takes header and payload from wire bytes; false, and nothing changed, for fewer than 20 bytes.
    bool parse(const char* bytes, size_t size);

    // Compares the headers only; the payload takes no part.
    bool operator==(const packet& other) const;
    bool operator!=(const packet& other) const { return !(*this == other); }

    uint8_t head = 0;
    uint8_t version = 0;
    uint8_t reserved1 = 0;
    uint8_t reserved2 = 0;
    uint32_t session = 0;
    uint32_t sequence = 0;
    uint8_t total_packets = 0;
    uint8_t current_packet = 0;
    uint16_t message_id = 0;
    uint32_t length = 0;

private:
    void allocate(size_t size);

    std::unique_ptr<char[]> m_payload;
    // What m_payload really holds; `length` is public and may claim more.
    size_t m_capacity = 0;
};

} // namespace netip
