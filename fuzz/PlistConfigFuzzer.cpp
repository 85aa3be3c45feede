// The administrator's property-list configuration file (XML or binary), answered through every getter.
#include "config/Config.h"
#include "fuzz/FuzzEnvironment.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using varnoth::Config;
    using varnoth::fuzz::FuzzEnvironment;
    const Config::Locations locations = FuzzEnvironment::configLocations();
    FuzzEnvironment::writeInput(locations.systemFolder / locations.bundleName / "Fuzz.plist", data, size);
    const Config config(locations, "Fuzz");
    varnoth::fuzz::require(config.plistMode);
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
