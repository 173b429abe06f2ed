#pragma once

#include <QMutex>

#include <cstdint>

namespace background {

// A stop flag that a worker thread reads while its owner changes it.
class state
{
public:
    virtual ~state() = default;

    void set(uint16_t value);
    void set_running() { set(1); }
    void set_stopped() { set(0); }
    uint16_t value() const;
    bool running() const { return value() != 0; }
    bool stopped() const { return value() == 0; }

private:
    mutable QMutex m_mutex; // guards m_running
    uint16_t m_running = 0;
};

} // namespace background
