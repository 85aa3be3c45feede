#pragma once

#include "platform/HostInfo.h"

namespace varnoth {

class FixedHostInfo final : public HostInfo {
public:
    std::string operatingSystemVersion() const override { return osVersion; }
    std::string operatingSystemName() const override { return osName; }
    std::string loginName() const override { return login; }
    std::optional<std::string> computerName() const override { return computer; }

    std::string osVersion = "Version 14.5 (Build 23F79)";
    std::string osName = "macOS";
    std::string login = "tester";
    std::optional<std::string> computer = "Test Mac";
};

} // namespace varnoth
