#pragma once

#include <QString>

#include <optional>

namespace scripting {

// A boolean argument: "yes", "1", "true", "on", "enable", "enabled" and their opposites,
// in any case; nothing for any other text.
std::optional<bool> text_to_bool(const QString& text);

} // namespace scripting
