// The administrator's property-list configuration file (XML or binary), answered through every getter.
#include "config/Config.h"
#include "fuzz/FuzzEnvironment.h"

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using varnoth::Config;
    using varnoth::fuzz::FuzzEnvironment;
    const Config::Locations locations = FuzzEnvironment::configLocations();
    const auto file = locations.systemFolder / locations.bundleName / "Fuzz.plist";
    FuzzEnvironment::writeInput(file, data, size);
    const Config config(locations, "Fuzz");
    if (!config.plistMode) {
        std::abort();
    }
    (void)config.UpdateFrequency();
    (void)config.ShowExitMenu();
    (void)config.SignatureServerAddress();
    (void)config.SignatureServerPort();
    (void)config.UserEmailAddress();
    (void)config.UserEmailAddressEditable();
    (void)config.SignatureServerAutodetect();
    (void)config.LDAPServer();
    (void)config.settingsText();
    FuzzEnvironment::trimLog();
    return 0;
}
