#include "sdk/scanner.h"

#include "diagnostics/blackbox.h"
#include "netip/dvr_networking.h"

#include <QHostAddress>
#include <QNetworkDatagram>
#include <QRegularExpression>
#include <QUdpSocket>

#include <cstring>

scanner::scanner(QObject* parent)
    : QThread(parent)
    , loggable("scanner")
{
}

scanner::~scanner()
{
    m_stop_requested = true;
    wait();
}

void scanner::start_single_pass()
{
    if (isRunning())
        return;
    m_single_pass = true;
    start(QThread::InheritPriority);
}

void scanner::start_for_count(quint64 count)
{
    if (isRunning())
        return;
    m_wanted_count = count;
    m_single_pass = false;
    start(QThread::InheritPriority);
}

void scanner::stop()
{
    m_stop_requested = true;
}

QMap<mac, device> scanner::devices() const
{
    QMutexLocker lock(&m_known_mutex);
    return m_known;
}

QByteArray scanner::discovery_datagram()
{
    QByteArray bytes(20, '\0');
    bytes[0] = char(0xFF);
    bytes[14] = char(discovery_request & 0xFF);
    bytes[15] = char(discovery_request >> 8);
    return bytes;
}

QString scanner::repair_numbers(const QString& text)
{
    static const QRegularExpression number(QStringLiteral("\\:\\s?(\\d+)\\,"));
    QString out = text;
    int from = 0;
    for (;;) {
        const QRegularExpressionMatch m = number.match(out, from);
        if (!m.hasMatch())
            break;
        // Digits too long for a number stay as written; the JSON reader decides.
        bool ok = false;
        const qulonglong value = m.captured(1).toULongLong(&ok);
        const QString repaired = ok ? QString::number(value) : m.captured(1);
        out.replace(m.capturedStart(1), m.capturedLength(1), repaired);
        from = m.capturedStart(1) + repaired.size();
    }
    return out;
}

bool scanner::parse_device(const QString& text, device& out) const
{
    bool text_values = false;
    if (!dvr_networking::json_to_netcommon_v2(text, out.net, text_values)) {
        log(blackbox::error, "JSON assignment failed");
        return false;
    }
    out.text_values = text_values;
    SDK_CONFIG_NET_COMMON_V3 v3;
    bool ignored = false;
    if (!dvr_networking::json_to_netcommon_v3(text, v3, ignored))
        return false;

    const QByteArray mac_text(out.net.MAC, int(strnlen(out.net.MAC, sizeof out.net.MAC)));
    std::array<uint8_t, 6> bytes {};
    if (mac_text.size() > 16) {
        for (int i = 0; i < 6; ++i)
            bytes[size_t(i)] = uint8_t(mac_text.mid(i * 3, 2).toUInt(nullptr, 16));
    }
    out.address = mac(bytes);
    out.port = uint16_t(out.net.TCPPort);
    const QString user = QString::fromUtf8(v3.Username, int(strnlen(v3.Username, sizeof v3.Username)));
    out.user = user.isEmpty() ? QStringLiteral("admin") : user;
    out.password = QString::fromUtf8(v3.Password, int(strnlen(v3.Password, sizeof v3.Password)));
    out.password_is_hash = !out.password.isEmpty();
    return true;
}

void scanner::run()
{
    {
        QMutexLocker lock(&m_known_mutex);
        m_known.clear();
    }
    if (m_single_pass) {
        pass();
    } else {
        for (;;) {
            if (m_stop_requested)
                break;
            if (count_reached())
                break;
            if (!pass())
                break;
        }
    }
    emit done(m_stop_requested);
    m_stop_requested = false;
}

bool scanner::count_reached() const
{
    // Counts are 64-bit: a count past the range of int must not wrap into a small one.
    QMutexLocker lock(&m_known_mutex);
    return quint64(m_known.size()) >= m_wanted_count;
}

void scanner::open_reply_socket(QUdpSocket& socket)
{
    socket.bind(QHostAddress::AnyIPv4, discovery_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, reply_buffer_bytes);
}

bool scanner::pass()
{
    QUdpSocket socket;
    open_reply_socket(socket);
    QMap<mac, device> found;

    const QByteArray request = discovery_datagram();
    if (socket.writeDatagram(request, QHostAddress::Broadcast, discovery_port) != request.size()) {
        log(blackbox::error, "Невозможно передать UDP датаграмму");
        return false;
    }

    bool waiting = socket.waitForReadyRead(reply_wait_ms);
    while (waiting && socket.hasPendingDatagrams()) {
        log(blackbox::debug, "Входящая датаграмма...");
        const QNetworkDatagram datagram = socket.receiveDatagram();
        const QByteArray data = datagram.data();
        if (data.size() < minimum_reply) {
            log(blackbox::debug, "Входящая датаграмма слишком мала, пропускаем... наша датаграмма поиска?..");
            waiting = socket.hasPendingDatagrams() || socket.waitForReadyRead(reply_wait_ms);
            continue;
        }
        log(blackbox::debug, "Чтение информации об устройстве...");
        const QByteArray body = data.mid(20);
        const int end = body.indexOf('\0');
        const QString text = repair_numbers(QString::fromUtf8(end < 0 ? body : body.left(end)));

        device dev;
        if (parse_device(text, dev)) {
            QHostAddress sender = datagram.senderAddress();
            bool is_v4 = false;
            const quint32 v4 = sender.toIPv4Address(&is_v4);
            if (is_v4)
                sender = QHostAddress(v4);
            dev.ip = sender.toString();
            if (dev.ip == QLatin1String("255.255.255.127"))
                log(blackbox::error, "Ошибка преобразования адреса %s", qPrintable(dev.ip));
            dev.state = 0;
            found.insert(dev.address, dev);
            bool is_new = false;
            {
                QMutexLocker lock(&m_known_mutex);
                if (!m_known.contains(dev.address)) {
                    m_known.insert(dev.address, dev);
                    is_new = true;
                }
            }
            if (is_new) {
                log(blackbox::debug, "Новое устройство %s", qPrintable(dev.address.text()));
                emit device_found(dev.address, dev);
            }
        }
        if (!m_single_pass && count_reached())
            break;
        waiting = socket.hasPendingDatagrams() || socket.waitForReadyRead(reply_wait_ms);
    }

    QList<mac> lost;
    for (const mac& key : devices().keys()) {
        if (!found.contains(key)) {
            log(blackbox::debug, "Устройство %s не найдено среди результатов предыдущего поиска, считаем утерянным",
                qPrintable(key.text()));
            lost << key;
        }
    }
    for (const mac& key : qAsConst(lost)) {
        log(blackbox::debug, "Удаляем устройство %s из результатов предыдущего поиска, т.к. оно считается утерянным...",
            qPrintable(key.text()));
        {
            QMutexLocker lock(&m_known_mutex);
            m_known.remove(key);
        }
        emit device_lost(key);
    }
    return true;
}
