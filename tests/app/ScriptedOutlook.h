#pragma once

#include "outlook/OutlookHandler.h"
#include "outlook/RecordingScriptHost.h"
#include "platform/Platform.h"

#include <algorithm>

namespace varnoth::test {

// Outlook 16.89 with the default account jane@example.com, played by a recording script installed as the
// platform's script host (made after the platform's ports). The account a handler learns is kept for the
// process, so it is forgotten on both ends.
class ScriptedOutlook {
public:
    ScriptedOutlook() {
        script.version = "16.89";
        script.account = "jane@example.com";
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = &script;
        Platform::install(ports);
        OutlookHandler::defaultAccount.reset();
    }
    ~ScriptedOutlook() { OutlookHandler::defaultAccount.reset(); }
    ScriptedOutlook(const ScriptedOutlook&) = delete;
    ScriptedOutlook& operator=(const ScriptedOutlook&) = delete;

    // The messages that change Outlook: all but the two reading ones that every handler sends.
    std::vector<RecordingScriptHost::Message> changes() const {
        std::vector<RecordingScriptHost::Message> result;
        std::copy_if(
            script.messages.begin(), script.messages.end(), std::back_inserter(result),
            [](const auto& m) { return m.selector != "getVersion" && m.selector != "getDefaultAccount"; });
        return result;
    }

    RecordingScriptHost script;
};

} // namespace varnoth::test
