#include "launchd/LaunchControlError.h"

namespace varnoth {

LaunchControlError LaunchControlError::urlNotSet(const std::string& label) {
    return LaunchControlError(Code::urlNotSet, label, "The URL is not set for agent " + label);
}

} // namespace varnoth
