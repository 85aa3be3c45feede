#include "platform/posix/ProcessScriptHost.h"

#include "base/TextValues.h"
#include "platform/Platform.h"

#include <unistd.h>

namespace varnoth {

namespace {

class ProcessScriptObject final : public ScriptObject {
public:
    ProcessScriptObject(std::filesystem::path program, std::chrono::milliseconds timeLimit)
        : program_(std::move(program)), timeLimit_(timeLimit) {}

    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override {
        if (selector.empty() || selector.find('\0') != std::string_view::npos) {
            return ScriptReply::failed("invalid selector");
        }
        ProcessLauncher::Request request;
        request.program = program_;
        request.arguments = {std::string(selector)};
        for (const auto& argument : arguments) {
            // NUL ends an argument on the child's input, so it cannot be part of one.
            if (argument.find('\0') != std::string::npos) {
                return ScriptReply::failed("argument holds a NUL character");
            }
            request.input += argument;
            request.input += '\0';
        }
        request.timeLimit = timeLimit_;
        const auto& executable = Platform::bundle().executablePath;
        if (!executable.empty()) {
            request.environment.emplace_back("VARNOTH_AGENT_EXECUTABLE", executable.string());
        }

        const ProcessLauncher::Result result = Platform::processLauncher().run(request);
        if (!result.started) {
            return ScriptReply::failed("cannot start " + program_.string() + ": " + result.error);
        }
        if (result.timedOut) {
            return ScriptReply::failed("no answer within " + std::to_string(timeLimit_.count()) + " ms");
        }
        if (result.cancelled) {
            return ScriptReply::failed("stopped: the agent is exiting");
        }
        if (result.signal != 0) {
            return ScriptReply::failed("ended by signal " + std::to_string(result.signal));
        }
        if (result.exitCode != 0) {
            return ScriptReply::failed("exit status " + std::to_string(result.exitCode) + ": " +
                                       result.errorOutput.substr(0, result.errorOutput.find('\n')));
        }
        if (!text::isValidUtf8(result.output)) {
            return ScriptReply::failed("answer is not UTF-8");
        }
        if (result.output.empty()) {
            return ScriptReply::nothing();
        }
        return ScriptReply::withText(result.output);
    }

private:
    std::filesystem::path program_;
    std::chrono::milliseconds timeLimit_;
};

} // namespace

ProcessScriptHost::ProcessScriptHost(std::chrono::milliseconds timeLimit, std::filesystem::path scriptsFolder)
    : timeLimit_(timeLimit), givenFolder_(std::move(scriptsFolder)) {}

void ProcessScriptHost::loadScripts() {
    scriptsFolder_ = givenFolder_.empty() ? Platform::bundle().resourcesFolder : givenFolder_;
    loaded_ = true;
}

std::unique_ptr<ScriptObject> ProcessScriptHost::makeObject(std::string_view className) {
    if (!loaded_) {
        loadScripts();
    }
    // A class name is a plain resource name; anything that could leave the folder finds nothing.
    if (scriptsFolder_.empty() || className.empty() || className == "." || className == ".." ||
        className.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos) {
        return nullptr;
    }
    const std::filesystem::path program = scriptsFolder_ / std::string(className);
    std::error_code error;
    if (!std::filesystem::is_regular_file(program, error) || ::access(program.c_str(), X_OK) != 0) {
        return nullptr;
    }
    return std::make_unique<ProcessScriptObject>(program, timeLimit_);
}

} // namespace varnoth
