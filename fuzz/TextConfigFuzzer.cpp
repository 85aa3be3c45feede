// The administrator's key=value configuration file, read and answered through every getter.
#include "config/Config.h"
#include "fuzz/FuzzEnvironment.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using varnoth::Config;
    using varnoth::fuzz::FuzzEnvironment;
    const Config::Locations locations = FuzzEnvironment::configLocations();
    FuzzEnvironment::writeInput(
        locations.applicationSupportFolder / "Varnoth" / locations.bundleName / "Fuzz.txt", data, size);
    const Config config(locations, "Fuzz");
    (void)config.UpdateFrequency();
    (void)config.AllowConfigureDefaultSignatures();
    (void)config.SignatureServerAddress();
    (void)config.SignatureServerPort();
    (void)config.UserEmailAddress();
    (void)config.UserEmailAddressEditable();
    (void)config.LDAPPassword();
    (void)config.SuppressErrorMessages();
    // The directory settings never reach the log. (Values hold no line feed, so only the entry's own
    // lines can start with a key.)
    const std::string logged = config.settingsText();
    varnoth::fuzz::require(logged.find("\nLDAPPassword") == std::string::npos &&
                           logged.find("\nLDAPUser") == std::string::npos);
    FuzzEnvironment::trimLog();
    return 0;
}
