#pragma once

#include <cstdint>
#include <string>

namespace varnoth {

// What launchd says about a job: a process runs (with its id), the job is loaded without a
// process, or launchd does not list it.
class AgentStatus {
public:
    enum class State { running, loaded, unloaded };

    static AgentStatus running(std::int64_t pid) { return AgentStatus(State::running, pid); }
    static AgentStatus loaded() { return AgentStatus(State::loaded, 0); }
    static AgentStatus unloaded() { return AgentStatus(State::unloaded, 0); }

    State state() const { return state_; }
    // The process id while running, else 0.
    std::int64_t pid() const { return pid_; }

    // "running(4242)", "loaded" or "unloaded".
    std::string description() const;

    bool operator==(const AgentStatus&) const = default;

private:
    AgentStatus(State state, std::int64_t pid) : state_(state), pid_(pid) {}

    State state_;
    std::int64_t pid_;
};

} // namespace varnoth
