// Job records decoded from property-list bytes; what decodes must survive an encode and decode unchanged.
#include "fuzz/FuzzEnvironment.h"
#include "launchd/LaunchAgent.h"
#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "launchd/PropertyListError.h"

#include <optional>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    std::optional<LaunchAgent> agent;
    std::string encoded;
    try {
        agent = PropertyListDecoder().decode<LaunchAgent>(fuzz::bytes(data, size));
        encoded = PropertyListEncoder().encode(*agent);
    } catch (const PropertyListError&) {
        return 0; // unreadable input, or a value the encoder refuses rather than writing it half
    }
    fuzz::require(PropertyListDecoder().decode<LaunchAgent>(encoded) == *agent);
    return 0;
}
