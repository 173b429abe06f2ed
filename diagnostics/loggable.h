#pragma once

#include <QByteArray>

#include <memory>

class blackbox;

// Mix-in for classes that write to the blackbox under their own ident.
// Copies share the blackbox; without one attached, the global instance is used.
class loggable
{
public:
    explicit loggable(QByteArray ident, std::shared_ptr<blackbox> box = {});
    loggable(const loggable&) = default;
    loggable& operator=(const loggable&) = default;
    virtual ~loggable();

    void attach(std::shared_ptr<blackbox> box);
    std::shared_ptr<blackbox> box() const;
    const QByteArray& ident() const { return m_ident; }

    void log(int level, const char* format, ...) const __attribute__((format(printf, 3, 4)));

private:
    QByteArray m_ident;
    std::shared_ptr<blackbox> m_box;
};
