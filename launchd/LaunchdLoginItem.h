#pragma once

#include "launchd/LaunchAgent.h"
#include "launchd/LaunchControl.h"
#include "platform/LoginItem.h"

namespace varnoth {

// The login item as launchd sees it: the agent's own job record in the user's LaunchAgents folder,
// labelled with the bundle identifier, whose Program is the bundle's executable and which runs at
// load. launchd reads that folder at login, so the file alone decides the next login; the running
// session is left alone (loading would start a second agent, unloading would stop this one).
class LaunchdLoginItem final : public LoginItem {
public:
    explicit LaunchdLoginItem(LaunchControl& control = LaunchControl::shared()) : control_(control) {}

    bool isInstalled() override;
    bool install() override;
    bool remove() override;
    // The installer package's launch agent, /Library/LaunchAgents/<bundle identifier>.plist.
    bool isProvidedBySystem() override;

    // The record for the current bundle (Platform::bundle()).
    static LaunchAgent record();
    // Whether the executable runs from a copy that Gatekeeper's path randomisation made (below a folder
    // "AppTranslocation"): that path is gone after the next restart, so no login item may point there.
    static bool isTranslocated(const std::filesystem::path& executable);

private:
    LaunchControl& control_;
};

} // namespace varnoth
