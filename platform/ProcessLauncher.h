#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace varnoth {

// Starts child processes without a shell: arguments pass unchanged, whatever they hold.
class ProcessLauncher {
public:
    struct Request {
        std::filesystem::path program;
        std::vector<std::string> arguments;
        std::string input; // written to the child's standard input, which is then closed
        std::optional<std::chrono::milliseconds> timeLimit;           // the child is killed after it
        std::vector<std::pair<std::string, std::string>> environment; // added to the agent's own
    };

    struct Result {
        bool started = false;   // false: the program could not be started (see error)
        bool timedOut = false;  // killed after the time limit
        bool cancelled = false; // killed because the agent is exiting
        int exitCode = -1;      // valid when the child exited normally
        int signal = 0;         // the signal that ended the child, or 0
        std::string output;     // its standard output
        std::string errorOutput;
        std::string error; // why it could not be started

        bool succeeded() const { return started && !timedOut && !cancelled && signal == 0 && exitCode == 0; }
    };

    virtual ~ProcessLauncher() = default;
    // Runs the program to its end and collects what it printed.
    virtual Result run(const Request& request) = 0;
    // Starts the program with the agent's standard streams and returns without waiting for it.
    virtual bool launch(const std::filesystem::path& program, const std::vector<std::string>& arguments) = 0;
};

} // namespace varnoth
