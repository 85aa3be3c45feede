#pragma once

#include "launchd/AgentStatus.h"
#include "launchd/KeyedDecodingContainer.h"
#include "launchd/KeyedEncodingContainer.h"
#include "launchd/MachService.h"
#include "launchd/ProcessType.h"
#include "launchd/ResourceLimits.h"
#include "launchd/StartCalendarInterval.h"
#include "launchd/inetdCompatibility.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// One launchd job description: the property list in a LaunchAgents folder, field by field under the
// launchd key names. An absent field means the file has no such key. Decoding stores what the file
// holds; only the setters of program, programArguments and nice apply their rules.
class LaunchAgent {
public:
    // Every setting absent.
    explicit LaunchAgent(std::string label);
    // One word becomes Program; none or several become ProgramArguments.
    LaunchAgent(std::string label, std::vector<std::string> program);

    std::optional<std::filesystem::path>
        url; // the file the record was read from or written to; never encoded
    std::string label;
    std::optional<bool> disabled;
    std::optional<bool> enableGlobbing;

    const std::optional<std::string>& program() const { return program_; }
    // A present program removes programArguments.
    void setProgram(std::optional<std::string> program);
    const std::optional<std::vector<std::string>>& programArguments() const { return programArguments_; }
    // A one-word list becomes program instead; any other present list removes program.
    void setProgramArguments(std::optional<std::vector<std::string>> arguments);

    std::optional<std::string> workingDirectory;
    std::optional<std::string> standardInPath;
    std::optional<std::string> standardOutPath;
    std::optional<std::string> standardErrorPath;
    std::optional<std::map<std::string, std::string>> environmentVariables;
    std::optional<bool> runAtLoad;
    std::optional<std::int64_t> startInterval;
    std::optional<StartCalendarInterval> startCalendarInterval;
    std::optional<bool> startOnMount;
    std::optional<bool> onDemand;
    std::optional<bool> keepAlive;
    std::optional<std::vector<std::string>> watchPaths;
    std::optional<std::vector<std::string>> queueDirectories;
    std::optional<std::int64_t> umask; // the plain number: octal 022 is 18
    std::optional<bool> sessionCreate;
    std::optional<std::string> groupName;
    std::optional<std::string> userName;
    std::optional<bool> initGroups;
    std::optional<std::string> rootDirectory;
    std::optional<bool> launchOnlyOnce;
    std::optional<std::vector<std::string>> limitLoadToSessionType;
    std::optional<std::vector<std::string>> limitLoadToHosts;
    std::optional<std::vector<std::string>> limitLoadFromHosts;
    std::optional<bool> abandonProcessGroup;
    std::optional<bool> enablePressuredExit;
    std::optional<bool> enableTransactions;
    std::optional<std::int64_t> exitTimeOut;
    std::optional<varnoth::inetdCompatibility> inetdCompatibility;
    std::optional<ResourceLimits> hardResourceLimits;
    std::optional<ResourceLimits> softResourceLimits;
    std::optional<std::int64_t> timeOut;
    std::optional<std::int64_t> throttleInterval;
    std::optional<std::map<std::string, MachService>> machServices;
    std::optional<bool> debug;
    std::optional<bool> waitForDebugger;
    std::optional<bool> legacyTimers;
    std::optional<bool> lowPriorityIO;
    std::optional<bool> lowPriorityBackgroundIO;

    const std::optional<std::int64_t>& nice() const { return nice_; }
    // Clamps into -20...20.
    void setNice(std::optional<std::int64_t> nice);

    std::optional<ProcessType> processType;

    // Label is required; a known key holding another type fails the whole record; unknown keys are
    // ignored. Throws PropertyListError.
    static LaunchAgent decode(const KeyedDecodingContainer& container);
    void encode(KeyedEncodingContainer& container) const;

    // Shortcuts to LaunchControl::shared() for this record; load and unload throw LaunchControlError
    // when the record has no file yet.
    void load() const;
    void unload() const;
    void start() const;
    void stop() const;
    AgentStatus status() const;

    bool operator==(const LaunchAgent&) const = default;

private:
    // Calls visit(key, field) for every setting but Label, in file order.
    template <typename Agent, typename Visitor> static void visitSettings(Agent& agent, Visitor&& visit);

    std::optional<std::string> program_;
    std::optional<std::vector<std::string>> programArguments_;
    std::optional<std::int64_t> nice_;
};

} // namespace varnoth
