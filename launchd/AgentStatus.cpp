#include "launchd/AgentStatus.h"

namespace varnoth {

std::string AgentStatus::description() const {
    switch (state_) {
    case State::running:
        return "running(" + std::to_string(pid_) + ")";
    case State::loaded:
        return "loaded";
    case State::unloaded:
        break;
    }
    return "unloaded";
}

} // namespace varnoth
