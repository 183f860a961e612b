#pragma once

#include "platform/Profile.h"

#include <optional>
#include <string_view>

namespace brenvo {

enum class SystemPlace {
    system,    // "/", a top-level folder, or inside one of the system's own folders
    otherUser, // another account's home folder, or inside one
};

// Whether `path` (a real path) is one of the places that belong to the system or to another account,
// under `profile`; nothing for anything else, the user's own home included (the explanations have a rule
// of their own for it).
std::optional<SystemPlace> systemPlace(std::string_view path, const Profile& profile);

} // namespace brenvo
