#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/KeyedEncodingContainer.h"

namespace varnoth {

// The options of one Mach service that launchd registers for a job. Both keys are always written
// and both are required when reading.
class MachService {
public:
    MachService(bool hideUntilCheckIn, bool resetAtClose)
        : hideUntilCheckIn(hideUntilCheckIn), resetAtClose(resetAtClose) {}

    bool hideUntilCheckIn;
    bool resetAtClose;

    static MachService decode(const KeyedDecodingContainer& container);
    void encode(KeyedEncodingContainer& container) const;

    bool operator==(const MachService&) const = default;
};

} // namespace varnoth
