#pragma once

#include "platform/HostInfo.h"

#include <memory>

namespace varnoth {

// Host facts as Foundation reports them: the system's own version string (as in "Version 14.5 (Build
// 23F79)"), the login name and the computer's name (the one set in System Settings).
// Holds nothing; callable from any thread.
class MacHostInfo final : public HostInfo {
public:
    // Nothing when Foundation has no process information.
    static std::unique_ptr<MacHostInfo> Create();

    std::string operatingSystemVersion() const override;
    std::string operatingSystemName() const override { return "macOS"; }
    std::string loginName() const override;
    std::optional<std::string> computerName() const override;

private:
    MacHostInfo() = default;
};

} // namespace varnoth
