#include "outlook/OutlookState.h"

#include "platform/Platform.h"

namespace varnoth {

namespace {

std::string agentName() {
    const std::string& name = Platform::bundle().displayName;
    return name.empty() ? "Varnoth Brelvane Agent" : name;
}

} // namespace

OutlookState::Blocker OutlookState::fromErrorNumber(int number) {
    switch (number) {
    case applicationNotFound:
        return Blocker::notInstalled;
    case notUnderstood:
    case cannotGet:
        return Blocker::newMode;
    case notPermitted:
        return Blocker::automationRefused;
    default:
        return Blocker::none;
    }
}

std::string OutlookState::cause(Blocker blocker) {
    const std::string settings = " in System Settings > Privacy & Security > ";
    switch (blocker) {
    case Blocker::none:
        return {};
    case Blocker::notInstalled:
        return "Microsoft Outlook is not installed: install Outlook for Mac, then update signatures again";
    case Blocker::newMode: {
        const std::string what = "Outlook is in new mode, whose scripting cannot manage signatures: ";
        // EnableNewOutlook 3 hides the switch and allows the new interface only.
        const auto managed = Platform::outlookEnvironment().managedEnableNewOutlook();
        if (managed == 3) {
            return what + "the administrator's EnableNewOutlook value 3 allows new Outlook only; set it to "
                          "0, 1 or 2";
        }
        return what + "turn off New Outlook in Outlook's Outlook menu" +
               (managed ? " (the administrator's EnableNewOutlook value is " + std::to_string(*managed) + ")"
                        : "");
    }
    case Blocker::automationRefused:
        return "Automation of Microsoft Outlook is refused (error -1743): turn on Microsoft Outlook under " +
               agentName() + settings + "Automation";
    case Blocker::accessibilityMissing:
        return "Accessibility permission is missing, which setting the default signatures needs: turn on " +
               agentName() + settings + "Accessibility";
    }
    return {};
}

} // namespace varnoth
