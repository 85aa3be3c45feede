#pragma once

#include "platform/LoginItem.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth {

// The login item of freedesktop.org desktops: $XDG_CONFIG_HOME/autostart/<bundle identifier>.desktop,
// started at login by the session. Bundle values are read from Platform::bundle() at each call.
class XdgAutostartLoginItem final : public LoginItem {
public:
    bool isInstalled() override;
    // Written to a temporary file in the same folder and renamed over the entry, so the session never
    // sees half an entry.
    bool install() override;
    bool remove() override;
    // A system-wide entry of that name in an autostart folder of $XDG_CONFIG_DIRS (/etc/xdg/autostart).
    bool isProvidedBySystem() override;

    static std::filesystem::path entryPath();
    // The whole entry for an executable and a display name.
    static std::string entryText(const std::filesystem::path& executable, const std::string& name);
    // The Exec value that runs exactly this file: one quoted argument, escaped for the quoting rules
    // and then for the key file's string rules.
    static std::string execValue(const std::filesystem::path& executable);
    // The arguments of an Exec value, after undoing both escapes; nothing when it is malformed.
    static std::optional<std::vector<std::string>> execArguments(std::string_view value);
};

} // namespace varnoth
