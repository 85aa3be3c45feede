#pragma once

#include <string>

namespace varnoth {

// What keeps the agent from managing Outlook's signatures on this Mac, and what the user or the
// administrator does about it. The causes are few; the run names the first that holds, in the order
// of the enumeration, once, instead of letting every operation fail on its own.
class OutlookState {
public:
    enum class Blocker {
        none,
        notInstalled,         // no Outlook for the agent to start
        newMode,              // the new interface scripts no signatures
        automationRefused,    // the user refused the agent's Apple events to Outlook
        accessibilityMissing, // setting the default signatures drives Outlook's window
    };

    // The numbers that name a cause when a script message fails with them.
    static constexpr int applicationNotFound = -10814; // Launch Services knows no such application
    static constexpr int notUnderstood = -1708;        // "doesn't understand the message"
    static constexpr int cannotGet = -1728;            // "can't get" the object
    static constexpr int notPermitted = -1743;         // "not authorized to send Apple events"

    static Blocker fromErrorNumber(int number);
    // One sentence: the cause, then after a colon the remedy. Empty for none. The new mode's names the
    // administrator's enforced EnableNewOutlook when there is one.
    static std::string cause(Blocker blocker);
};

} // namespace varnoth
