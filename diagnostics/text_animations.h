#pragma once

#include <QString>
#include <QStringList>

// Small moving texts that say that something is under way. The user calls next()
// on its own timer.
namespace text_animations {

class waiting
{
public:
    waiting();
    virtual ~waiting() = default;

    virtual void reset();
    // The current frame; moves on and wraps after the last.
    virtual QString next();

protected:
    QStringList m_frames;

private:
    int m_index = 0;
};

class spinning : public waiting
{
public:
    spinning();
};

class scanning : public waiting
{
public:
    scanning();
};

} // namespace text_animations
