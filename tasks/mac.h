#pragma once

#include <QMetaType>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>

// A hardware address of N ordered bytes; text form is lower-case hex joined by ":".
template <size_t N>
class generic_address
{
public:
    generic_address() { m_bytes.fill(0); }
    explicit generic_address(const std::array<uint8_t, N>& bytes)
        : m_bytes(bytes)
    {
    }
    virtual ~generic_address() = default;
    generic_address(const generic_address&) = default;
    generic_address& operator=(const generic_address&) = default;

    // Parses "aa:bb:..." (or "-" separated); an invalid text gives all zeroes and ok false.
    static generic_address from_text(const QString& text, bool* ok = nullptr)
    {
        generic_address result;
        const QStringList parts = text.trimmed().split(separators());
        bool good = parts.size() == int(N);
        for (size_t i = 0; good && i < N; ++i) {
            uint value = parts.at(int(i)).toUInt(&good, 16);
            good = good && value <= 0xFF && parts.at(int(i)).size() <= 2;
            result.m_bytes[i] = uint8_t(value);
        }
        if (!good)
            result = generic_address();
        if (ok)
            *ok = good;
        return result;
    }

    QString text() const
    {
        QStringList parts;
        for (uint8_t b : m_bytes)
            parts << QStringLiteral("%1").arg(b, 2, 16, QLatin1Char('0'));
        return parts.join(QLatin1Char(':'));
    }

    const std::array<uint8_t, N>& bytes() const { return m_bytes; }
    bool is_null() const
    {
        for (uint8_t b : m_bytes)
            if (b)
                return false;
        return true;
    }

    bool operator<(const generic_address& o) const { return m_bytes < o.m_bytes; }
    bool operator==(const generic_address& o) const { return m_bytes == o.m_bytes; }
    bool operator!=(const generic_address& o) const { return m_bytes != o.m_bytes; }

private:
    static const QRegularExpression& separators()
    {
        static const QRegularExpression re(QStringLiteral("[:\\-]"));
        return re;
    }
    std::array<uint8_t, N> m_bytes;
};

using mac = generic_address<6>;

Q_DECLARE_METATYPE(mac)
