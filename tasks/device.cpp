#include "tasks/device.h"

#include <cstring>

device::device()
{
    std::memset(&net, 0, sizeof net);
}
