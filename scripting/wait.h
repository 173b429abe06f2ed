#pragma once

#include <functional>

namespace scripting {

// Runs the event loop of the calling thread until condition, tested every poll_ms, no
// longer holds. False when the application was told to quit meanwhile: then it returns
// at once, whatever the condition says. An empty condition throws std::bad_function_call.
bool wait_while(const std::function<bool()>& condition, int poll_ms);

} // namespace scripting
