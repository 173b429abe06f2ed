#pragma once

#include <stdexcept>

namespace firmware_pack
{

// An ident or an element that a pack doesn't hold; caught inside the pack classes.
class not_found : public std::runtime_error
{
public:
    not_found()
        : std::runtime_error("not found")
    {
    }
};

} // namespace firmware_pack
