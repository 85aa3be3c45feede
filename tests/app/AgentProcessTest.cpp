#include "platform/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"

#include <csignal>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// The real varnoth-agent as a user starts it: a temporary HOME, no display.
class AgentProcessTest : public AgentTest {
protected:
    // Starts the tray agent and waits until the log holds the line, or ten seconds pass.
    pid_t startUntil(const std::string& line) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        char program[] = VARNOTH_AGENT;
        char* argv[] = {program, nullptr};
        pid_t pid = 0;
        if (posix_spawn(&pid, program, nullptr, nullptr, argv, environ) != 0) {
            return -1;
        }
        for (int i = 0; i < 200 && logText().find(line) == std::string::npos; ++i) {
            std::this_thread::sleep_for(50ms);
        }
        return pid;
    }
    static int stop(pid_t pid) {
        kill(pid, SIGTERM);
        int status = 0;
        waitpid(pid, &status, 0);
        return status;
    }
};

TEST_F(AgentProcessTest, StartWritesTheStartUpSequenceAndTerminationSaysExiting) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "SuppressErrorMessages=1\n");
    const pid_t pid = startUntil("SuppressErrorMessages: true");
    ASSERT_GT(pid, 0);
    const int status = stop(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // The sequence itself is AppDelegateTest's; here the real ports carry it through to SIGTERM.
    const std::string text = logText();
    std::size_t at = 0;
    const std::string user = std::string("The current user is ") + getpwuid(getuid())->pw_name + "\n";
    for (const std::string& piece :
         {std::string("--------------- Varnoth Brelvane Agent Version "), user,
          std::string("Starting app engine"), std::string("\nSuppressErrorMessages: true\n"),
          std::string("Update signatures started")}) {
        const std::size_t found = text.find(piece, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << piece << "\n" << text;
        at = found + piece.size();
    }
    EXPECT_EQ(text.substr(text.size() - 8), "Exiting\n");
}

TEST_F(AgentProcessTest, OnceReportsTheRunThroughItsExitStatusAndStandardError) {
    ProcessLauncher::Result result = PosixProcessLauncher().run({VARNOTH_AGENT, {"--once"}, {}, 30s, {}});
    EXPECT_TRUE(result.started);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.errorOutput.find("Missing SignatureServerAddress configuration"), std::string::npos);
    EXPECT_EQ(logLines().back(),
              "Missing SignatureServerAddress configuration. Unable to update signatures.");

    result = PosixProcessLauncher().run({VARNOTH_AGENT, {"--version"}, {}, 30s, {}});
    EXPECT_EQ(result.output, "Varnoth Brelvane Agent 1.0.0.1\n");
    result = PosixProcessLauncher().run({VARNOTH_AGENT, {"--bogus"}, {}, 30s, {}});
    EXPECT_EQ(result.exitCode, 2);
}

} // namespace
} // namespace varnoth::test
