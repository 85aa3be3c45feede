#include "launchd/MachService.h"

namespace varnoth {

MachService MachService::decode(const KeyedDecodingContainer& container) {
    const bool hideUntilCheckIn = container.decode<bool>("HideUntilCheckIn");
    return MachService(hideUntilCheckIn, container.decode<bool>("ResetAtClose"));
}

void MachService::encode(KeyedEncodingContainer& container) const {
    container.encode("HideUntilCheckIn", hideUntilCheckIn);
    container.encode("ResetAtClose", resetAtClose);
}

} // namespace varnoth
