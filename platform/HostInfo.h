#pragma once

#include <optional>
#include <string>

namespace varnoth {

// Facts about the process's host and user.
class HostInfo {
public:
    virtual ~HostInfo() = default;
    virtual std::string operatingSystemVersion() const = 0;
    virtual std::string loginName() const = 0;
    // The computer's name as shown to people; nothing when the host has none.
    virtual std::optional<std::string> computerName() const = 0;
};

} // namespace varnoth
