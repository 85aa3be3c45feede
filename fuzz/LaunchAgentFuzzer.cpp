// Job records decoded from property-list bytes; what decodes must survive an encode and decode unchanged.
#include "fuzz/FuzzEnvironment.h"
#include "launchd/LaunchAgent.h"
#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "launchd/PropertyListError.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    std::optional<LaunchAgent> agent;
    try {
        agent = PropertyListDecoder().decode<LaunchAgent>(bytes);
    } catch (const PropertyListError&) {
        return 0;
    }
    std::string encoded;
    try {
        encoded = PropertyListEncoder().encode(*agent);
    } catch (const PropertyListError&) {
        return 0; // a value the encoder cannot represent is refused, not written half
    }
    if (!(PropertyListDecoder().decode<LaunchAgent>(encoded) == *agent)) {
        std::abort();
    }
    return 0;
}
