#include "netip/packet.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>
#include <utility>

namespace netip {

packet::packet()
    : head(0xFF)
    , version(0x01)
{
}

packet::packet(uint16_t message_id)
    : packet()
{
    this->message_id = message_id;
}

packet::packet(uint16_t message_id, const char* data, size_t size)
    : packet(message_id)
{
    if (size > max_payload) {
        head = 0;
        return;
    }
    resize_payload(size);
    if (size)
        memcpy(m_payload.get(), data, size);
}

packet::packet(const packet& other)
    : head(other.head)
    , version(other.version)
    , reserved1(other.reserved1)
    , reserved2(other.reserved2)
    , session(other.session)
    , sequence(other.sequence)
    , total_packets(other.total_packets)
    , current_packet(other.current_packet)
    , message_id(other.message_id)
    , length(other.length)
{
    if (!other.m_payload)
        return;
    // An empty buffer is copied as a full-sized one; only the bytes the source really
    // holds are read, the rest is zeroed. A `length` beyond the source's buffer isn't trusted.
    allocate(length ? std::min(size_t(length), other.m_capacity) : max_payload);
    const size_t taken = std::min(m_capacity, other.m_capacity);
    memcpy(m_payload.get(), other.m_payload.get(), taken);
    memset(m_payload.get() + taken, 0, m_capacity - taken);
}

packet& packet::operator=(const packet& other)
{
    if (this != &other) {
        packet copy(other);
        *this = std::move(copy);
    }
    return *this;
}

packet::packet(packet&& other) noexcept
    : head(other.head)
    , version(other.version)
    , reserved1(other.reserved1)
    , reserved2(other.reserved2)
    , session(other.session)
    , sequence(other.sequence)
    , total_packets(other.total_packets)
    , current_packet(other.current_packet)
    , message_id(other.message_id)
    , length(other.length)
    , m_payload(std::move(other.m_payload))
    , m_capacity(std::exchange(other.m_capacity, 0))
{
    other.length = 0;
}

packet& packet::operator=(packet&& other) noexcept
{
    head = other.head;
    version = other.version;
    reserved1 = other.reserved1;
    reserved2 = other.reserved2;
    session = other.session;
    sequence = other.sequence;
    total_packets = other.total_packets;
    current_packet = other.current_packet;
    message_id = other.message_id;
    length = std::exchange(other.length, 0);
    m_payload = std::move(other.m_payload);
    m_capacity = std::exchange(other.m_capacity, 0);
    return *this;
}

packet::~packet() = default;

packet packet::make_bad()
{
    packet p;
    p.head = 0;
    return p;
}

uint32_t packet::detect_payload_size(const char* bytes, size_t size)
{
    if (size < header_size)
        return 0;
    return qFromLittleEndian<quint32>(bytes + 16);
}

bool packet::bad() const
{
    return head < 0xFF;
}

bool packet::well_formed() const
{
    return head >= 0xFF && version <= 1 && reserved1 == 0;
}

char* packet::data()
{
    return m_payload.get();
}

const char* packet::data() const
{
    return m_payload.get();
}

size_t packet::payload_size() const
{
    return std::min(size_t(length), m_capacity);
}

bool packet::assign(const char* data, size_t size)
{
    if (size > max_payload)
        return false;
    resize_payload(size);
    if (size)
        memcpy(m_payload.get(), data, size);
    return true;
}

void packet::resize_payload(size_t size)
{
    allocate(size);
    length = uint32_t(size);
}

void packet::allocate(size_t size)
{
    m_payload.reset(new char[size]);
    m_capacity = size;
}

void packet::serialize_header(char* out) const
{
    out[0] = char(head);
    out[1] = char(version);
    out[2] = char(reserved1);
    out[3] = char(reserved2);
    qToLittleEndian<quint32>(session, out + 4);
    qToLittleEndian<quint32>(sequence, out + 8);
    out[12] = char(total_packets);
    out[13] = char(current_packet);
    qToLittleEndian<quint16>(message_id, out + 14);
    qToLittleEndian<quint32>(length, out + 16);
}

bool packet::serialize(char* out, size_t* size_in_out) const
{
    const size_t total = size_t(length) + header_size;
    if (*size_in_out < total)
        return false;
    serialize_header(out);
    // A header that claims more than the buffer holds goes out padded with zeros.
    const size_t held = payload_size();
    if (held)
        memcpy(out + header_size, m_payload.get(), held);
    memset(out + header_size + held, 0, length - held);
    *size_in_out = total;
    return true;
}

bool packet::parse(const char* bytes, size_t size)
{
    if (size < header_size)
        return false;
    if (size > header_size && size - header_size != length)
        resize_payload(size - header_size);

    head = uint8_t(bytes[0]);
    version = uint8_t(bytes[1]);
    reserved1 = uint8_t(bytes[2]);
    reserved2 = uint8_t(bytes[3]);
    session = qFromLittleEndian<quint32>(bytes + 4);
    sequence = qFromLittleEndian<quint32>(bytes + 8);
    total_packets = uint8_t(bytes[12]);
    current_packet = uint8_t(bytes[13]);
    message_id = qFromLittleEndian<quint16>(bytes + 14);
    length = qFromLittleEndian<quint32>(bytes + 16);

    // The wire `length` may disagree with the bytes given: never read or write past either.
    const size_t taken = std::min({ size_t(length), m_capacity, size - header_size });
    if (taken)
        memcpy(m_payload.get(), bytes + header_size, taken);
    return true;
}

bool packet::operator==(const packet& other) const
{
    return head == other.head && version == other.version && reserved1 == other.reserved1
        && reserved2 == other.reserved2 && session == other.session && sequence == other.sequence
        && total_packets == other.total_packets && current_packet == other.current_packet
        && message_id == other.message_id && length == other.length;
}

} // namespace netip
