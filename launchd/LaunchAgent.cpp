#include "launchd/LaunchAgent.h"

#include "launchd/LaunchControl.h"

#include <algorithm>
#include <type_traits>

namespace varnoth {

LaunchAgent::LaunchAgent(std::string label) : label(std::move(label)) {}

LaunchAgent::LaunchAgent(std::string label, std::vector<std::string> program) : label(std::move(label)) {
    if (program.size() == 1) {
        program_ = std::move(program.front());
    } else {
        programArguments_ = std::move(program);
    }
}

void LaunchAgent::setProgram(std::optional<std::string> program) {
    program_ = std::move(program);
    if (program_) {
        programArguments_.reset();
    }
}

void LaunchAgent::setProgramArguments(std::optional<std::vector<std::string>> arguments) {
    programArguments_ = std::move(arguments);
    if (!programArguments_) {
        return;
    }
    if (programArguments_->size() == 1) {
        setProgram(programArguments_->front());
    } else {
        program_.reset();
    }
}

void LaunchAgent::setNice(std::optional<std::int64_t> nice) {
    nice_ = nice ? std::optional<std::int64_t>(std::clamp<std::int64_t>(*nice, -20, 20)) : std::nullopt;
}

template <typename Agent, typename Visitor> void LaunchAgent::visitSettings(Agent& agent, Visitor&& visit) {
    visit("Disabled", agent.disabled);
    visit("EnableGlobbing", agent.enableGlobbing);
    visit("Program", agent.program_);
    visit("ProgramArguments", agent.programArguments_);
    visit("WorkingDirectory", agent.workingDirectory);
    visit("StandardInPath", agent.standardInPath);
    visit("StandardOutPath", agent.standardOutPath);
    visit("StandardErrorPath", agent.standardErrorPath);
    visit("EnvironmentVariables", agent.environmentVariables);
    visit("RunAtLoad", agent.runAtLoad);
    visit("StartInterval", agent.startInterval);
    visit("StartCalendarInterval", agent.startCalendarInterval);
    visit("StartOnMount", agent.startOnMount);
    visit("OnDemand", agent.onDemand);
    visit("KeepAlive", agent.keepAlive);
    visit("WatchPaths", agent.watchPaths);
    visit("QueueDirectories", agent.queueDirectories);
    visit("Umask", agent.umask);
    visit("SessionCreate", agent.sessionCreate);
    visit("GroupName", agent.groupName);
    visit("UserName", agent.userName);
    visit("InitGroups", agent.initGroups);
    visit("RootDirectory", agent.rootDirectory);
    visit("LaunchOnlyOnce", agent.launchOnlyOnce);
    visit("LimitLoadToSessionType", agent.limitLoadToSessionType);
    visit("LimitLoadToHosts", agent.limitLoadToHosts);
    visit("LimitLoadFromHosts", agent.limitLoadFromHosts);
    visit("AbandonProcessGroup", agent.abandonProcessGroup);
    visit("EnablePressuredExit", agent.enablePressuredExit);
    visit("EnableTransactions", agent.enableTransactions);
    visit("ExitTimeOut", agent.exitTimeOut);
    visit("inetdCompatibility", agent.inetdCompatibility);
    visit("HardResourceLimits", agent.hardResourceLimits);
    visit("SoftResourceLimits", agent.softResourceLimits);
    visit("TimeOut", agent.timeOut);
    visit("ThrottleInterval", agent.throttleInterval);
    visit("MachServices", agent.machServices);
    visit("Debug", agent.debug);
    visit("WaitForDebugger", agent.waitForDebugger);
    visit("LegacyTimers", agent.legacyTimers);
    visit("LowPriorityIO", agent.lowPriorityIO);
    visit("LowPriorityBackgroundIO", agent.lowPriorityBackgroundIO);
    visit("Nice", agent.nice_);
    visit("ProcessType", agent.processType);
}

LaunchAgent LaunchAgent::decode(const KeyedDecodingContainer& container) {
    LaunchAgent agent(container.decode<std::string>("Label"));
    visitSettings(agent, [&container](const char* key, auto& field) {
        using Value = typename std::remove_reference_t<decltype(field)>::value_type;
        field = container.decodeIfPresent<Value>(key);
    });
    return agent;
}

void LaunchAgent::encode(KeyedEncodingContainer& container) const {
    container.encode("Label", label);
    visitSettings(
        *this, [&container](const char* key, const auto& field) { container.encodeIfPresent(key, field); });
}

void LaunchAgent::load() const {
    LaunchControl::shared().load(*this);
}

void LaunchAgent::unload() const {
    LaunchControl::shared().unload(*this);
}

void LaunchAgent::start() const {
    LaunchControl::shared().start(*this);
}

void LaunchAgent::stop() const {
    LaunchControl::shared().stop(*this);
}

AgentStatus LaunchAgent::status() const {
    return LaunchControl::shared().status(*this);
}

} // namespace varnoth
