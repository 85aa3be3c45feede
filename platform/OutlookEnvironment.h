#pragma once

#include <optional>

namespace varnoth {

// What the system knows about Microsoft Outlook without sending it an Apple event: whether it is
// installed, which interface its user preferences choose, what the administrator enforces, and whether
// the user let the agent automate it. Every answer may be unknown (nothing), as it is where there is
// no Outlook to ask, and then the script's own answers decide.
class OutlookEnvironment {
public:
    static constexpr const char* bundleIdentifier = "com.microsoft.Outlook";

    enum class Automation {
        unknown,   // Outlook not running, or no way to ask
        allowed,   // the user allowed it
        refused,   // the user refused it: every Apple event fails with -1743
        undecided, // the first Apple event will ask the user
    };

    virtual ~OutlookEnvironment() = default;
    virtual std::optional<bool> installed() { return std::nullopt; }
    // The user preference IsRunningNewOutlook: true when Outlook starts in its new interface.
    virtual std::optional<bool> runningNewOutlook() { return std::nullopt; }
    // The administrator's enforced EnableNewOutlook (0 to 3); nothing when it is not managed.
    virtual std::optional<long> managedEnableNewOutlook() { return std::nullopt; }
    virtual Automation automation() { return Automation::unknown; }
};

} // namespace varnoth
