#pragma once

#include "platform/HostInfo.h"

namespace varnoth {

class PosixHostInfo final : public HostInfo {
public:
    std::string operatingSystemVersion() const override;
    std::string operatingSystemName() const override;
    std::string loginName() const override;
    std::optional<std::string> computerName() const override;
};

} // namespace varnoth
