#pragma once

#include "platform/OutlookEnvironment.h"

namespace varnoth {

// Outlook as macOS knows it without an Apple event: Launch Services for the installation, the
// preferences of the com.microsoft.Outlook domain (the user's IsRunningNewOutlook, the administrator's
// enforced EnableNewOutlook) and AEDeterminePermissionToAutomateTarget, asked never to prompt, for the
// automation permission. Holds nothing; call from the main thread.
class MacOutlookEnvironment final : public OutlookEnvironment {
public:
    std::optional<bool> installed() override;
    std::optional<bool> runningNewOutlook() override;
    std::optional<long> managedEnableNewOutlook() override;
    Automation automation() override;
};

} // namespace varnoth
