#pragma once

#include <optional>
#include <string>

namespace brenvo {

// What the explanations ask of the system about applications, by identifier (a bundle identifier on the
// Mac, a desktop-file id on Linux). The platform answers for real; tests stand in for what can't exist
// on this machine, such as a running Mac application.
class AppSystem {
public:
    virtual ~AppSystem() = default;
    // Where the application is installed, if anywhere: a location the system knows and where the item
    // still exists.
    virtual std::optional<std::string> installedLocation(const std::string& identifier) const = 0;
    // The shown name of a running instance of the application; an empty name when it has none.
    virtual std::optional<std::string> runningName(const std::string& identifier) const = 0;
};

} // namespace brenvo
