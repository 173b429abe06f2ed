// Firmware upload: the image in chunks, one in flight, then the device's own progress.
#include "netip/dvr_networking.h"

#include "diagnostics/blackbox.h"
#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet_wrapper.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstring>

bool dvr_networking::upgrade(const firmware_reader& reader, const progress_callback& progress)
{
    const QJsonObject action { { QStringLiteral("Action"), QStringLiteral("Start") }, { QStringLiteral("Type"), QStringLiteral("System") } };
    netip::packet start = build_request(netip::msg_upgrade,
        QJsonDocument(QJsonObject { { QStringLiteral("Name"), QStringLiteral("OPSystemUpgrade") },
            { QStringLiteral("OPSystemUpgrade"), action } }));
    if (start.bad() || !try_exchange(start, nullptr, nullptr, nullptr, 0))
        return false;

    uint64_t total = 0;
    char* none = nullptr;
    if (!reader(none, 0, total))
        return false;
    // Whole numbers: a float count loses the last chunk of images such as 16 MiB + 1 byte.
    const auto count = uint32_t((total + netip::packet::max_payload - 1) / netip::packet::max_payload);
    progress(sending, 0);
    for (uint32_t i = 1; i <= count; ++i) {
        if (!send_chunk(reader, i))
            return false;
        progress(sending, static_cast<unsigned char>(float(i) / float(count) * 100.0f));
    }

    try {
        netip::packet end_of_file(netip::msg_upgrade_data);
        end_of_file.current_packet = 1;
        end_of_file.session = m_session;
        end_of_file.sequence = count;
        send(end_of_file, 0);

        uint16_t id = 0;
        uint16_t code = 0;
        do
            read_reply(id, code);
        while (id != netip::msg_upgrade_data_reply);
        if (code != netip::ret_ok)
            return false;

        for (;;) {
            read_reply(id, code);
            if (id != netip::msg_upgrade_progress)
                return false;
            if (code == netip::ret_upgrade_written) {
                progress(upgrading, 100);
                return true;
            }
            progress(upgrading, static_cast<unsigned char>(code & 0xFF));
        }
    } catch (int) {
        return false;
    }
}

dvr_networking::firmware_reader dvr_networking::reader_of(const QByteArray& image)
{
    return [image](char*& buffer, const uint64_t& offset, uint64_t& size) {
        const auto total = uint64_t(image.size());
        if (offset == 0 && size == 0) {
            size = total;
            return true;
        }
        if (offset > total)
            return false;
        size = std::min(size, total - offset);
        std::memcpy(buffer, image.constData() + offset, size_t(size));
        return true;
    };
}

bool dvr_networking::send_chunk(const firmware_reader& reader, uint32_t chunk_number)
{
    // The chunk is framed in place: the reader copies straight behind the header, and the
    // frame goes to the socket as it stands. Each copy more of every image shows in a fleet.
    constexpr size_t header_size = netip::packet::header_size;
    m_frame.resize(header_size + netip::packet::max_payload);
    char* const payload = m_frame.data() + header_size;
    char* buffer = payload;
    uint64_t size = netip::packet::max_payload;
    const uint64_t offset = uint64_t(chunk_number - 1) * netip::packet::max_payload;
    if (!reader(buffer, offset, size)) {
        log(blackbox::error, "Данные не предоставлены, неожиданный конец файла?..");
        return false;
    }
    if (size > netip::packet::max_payload) {
        log(blackbox::error, "Невозможно назначить данные для буфера");
        return false;
    }
    // A reader may also hand out bytes of its own instead of copying them.
    if (buffer != payload)
        std::memcpy(payload, buffer, size_t(size));
    netip::packet header(netip::msg_upgrade_data);
    header.length = uint32_t(size);
    header.session = m_session;
    header.sequence = chunk_number - 1;
    if (!header.well_formed()) {
        log(blackbox::error, "Создан неправильный пакет данных");
        return false;
    }
    header.serialize_header(m_frame.data());
    try {
        if (!packet_wrapper::write_frame(m_socket, m_frame.data(), header_size + size_t(size), header.message_id)) {
            log(blackbox::error, "Socket writing failed");
            throw int(write_failed);
        }
        await_reply(header.message_id, 0);
        wait_reply(netip::msg_upgrade_data_reply, netip::ret_ok, nullptr, nullptr);
    } catch (int) {
        log(blackbox::error, "Невозможно выполнить задачу для пакета");
        return false;
    }
    return true;
}

void dvr_networking::read_reply(uint16_t& message_id, uint16_t& code)
{
    netip::packet received;
    if (!packet_wrapper::read_from(m_socket, received, &code)) {
        log(blackbox::error, "Socket reading failed");
        throw int(read_failed);
    }
    message_id = received.message_id;
}
