#pragma once

#include <optional>
#include <string>

namespace varnoth {

// Facts about the process's host and user.
class HostInfo {
public:
    virtual ~HostInfo() = default;
    // On a Mac the system's version string ("Version 14.5 (Build 23F79)"); elsewhere the text names the
    // system itself: the distribution and the kernel.
    virtual std::string operatingSystemVersion() const = 0;
    // The system's name where the version text leaves it out ("macOS"); empty where the text holds it.
    virtual std::string operatingSystemName() const = 0;
    virtual std::string loginName() const = 0;
    // The computer's name as shown to people; nothing when the host has none.
    virtual std::optional<std::string> computerName() const = 0;
};

} // namespace varnoth
