#pragma once

#include "platform/ScriptHost.h"

#include <chrono>
#include <filesystem>

namespace varnoth {

// Runs a script class as a program: the bundle's resource named after the class, one child process per
// message. The child gets the selector as its only argument and the message's text arguments on its
// standard input, each followed by a NUL byte (so any text passes, however large); what it prints is the
// answer, and an empty answer is no answer. A non-zero exit, a crash or running past the time limit
// fails the message. The child finds the agent's executable in VARNOTH_AGENT_EXECUTABLE.
class ProcessScriptHost final : public ScriptHost {
public:
    // Long enough for Outlook to wait on an automation or accessibility prompt the user has to answer.
    static constexpr std::chrono::milliseconds defaultTimeLimit = std::chrono::minutes(3);

    // Without a folder the scripts are the bundle's resources.
    explicit ProcessScriptHost(std::chrono::milliseconds timeLimit = defaultTimeLimit,
                               std::filesystem::path scriptsFolder = {});

    // Takes the script folder from the bundle's resources as they are now, unless one was given.
    void loadScripts() override;
    // Nothing when the folder holds no executable resource of that name.
    std::unique_ptr<ScriptObject> makeObject(std::string_view className) override;

    std::chrono::milliseconds timeLimit() const { return timeLimit_; }

private:
    std::chrono::milliseconds timeLimit_;
    std::filesystem::path givenFolder_;
    std::filesystem::path scriptsFolder_;
    bool loaded_ = false;
};

} // namespace varnoth
