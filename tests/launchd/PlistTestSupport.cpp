#include "tests/launchd/PlistTestSupport.h"

#include <regex>
#include <sstream>

namespace varnoth::test {

std::string xmlPlist(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           dictionaryBody + "\n</dict>\n</plist>\n";
}

std::vector<std::string> rootKeys(const std::string& xml) {
    // The writer indents the root dictionary's keys by one tab, nested ones by more.
    static const std::regex rootKey("\n\t<key>([^<]*)</key>");
    std::vector<std::string> keys;
    for (std::sregex_iterator match(xml.begin(), xml.end(), rootKey), end; match != end; ++match) {
        keys.push_back((*match)[1]);
    }
    return keys;
}

const std::vector<std::string>& jobRecordKeys() {
    static const std::vector<std::string> keys = [] {
        std::istringstream names(
            "Label Disabled EnableGlobbing Program ProgramArguments WorkingDirectory StandardInPath "
            "StandardOutPath StandardErrorPath EnvironmentVariables RunAtLoad StartInterval "
            "StartCalendarInterval StartOnMount OnDemand KeepAlive WatchPaths QueueDirectories Umask "
            "SessionCreate GroupName UserName InitGroups RootDirectory LaunchOnlyOnce LimitLoadToSessionType "
            "LimitLoadToHosts LimitLoadFromHosts AbandonProcessGroup EnablePressuredExit EnableTransactions "
            "ExitTimeOut inetdCompatibility HardResourceLimits SoftResourceLimits TimeOut ThrottleInterval "
            "MachServices Debug WaitForDebugger LegacyTimers LowPriorityIO LowPriorityBackgroundIO Nice "
            "ProcessType");
        std::vector<std::string> all;
        for (std::string name; names >> name;) {
            all.push_back(name);
        }
        return all;
    }();
    return keys;
}

} // namespace varnoth::test
