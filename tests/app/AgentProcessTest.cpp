#include "base/Logger.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"
#include "tests/support/LoopbackListener.h"
#include "tests/support/ServerProcess.h"

#include <pwd.h>
#include <regex>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <thread>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// The real varnoth-agent as a user starts it: a temporary HOME, no display.
class AgentProcessTest : public AgentTest {
protected:
    // Starts the command (the tray agent by default) and waits until the log holds the line, or a minute
    // passes (only waited out when the line never comes); stopChild then gives it 30 seconds to end on
    // SIGTERM before it is killed.
    pid_t startUntil(const std::string& line, std::vector<std::string> command = {VARNOTH_AGENT}) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        const pid_t pid = spawnChild(command, root() / "output");
        for (int i = 0; i < 1200 && logText().find(line) == std::string::npos; ++i) {
            std::this_thread::sleep_for(50ms);
        }
        return pid;
    }
    static ProcessLauncher::Result run(std::vector<std::string> arguments) {
        return PosixProcessLauncher().run({VARNOTH_AGENT, std::move(arguments), {}, 30s, {}});
    }
};

// A second tray agent of the user exits and leaves the first running; a single run and the configuration
// report are not blocked by it. The start-up sequence itself is AppDelegateTest's; here the real ports
// carry it through to SIGTERM.
TEST_F(AgentProcessTest, StartWritesTheStartUpSequenceASecondAgentExitsAndTerminationSaysExiting) {
    writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", "SuppressErrorMessages=1\n");
    // What a crashed agent, or one on another host sharing the home, left: nobody holds it.
    const auto lockFile = Logger::logFilePath().string() + ".lock";
    writeFile(lockFile, "4194303 another-host\n");
    const pid_t pid = startUntil("SuppressErrorMessages: true");
    ASSERT_GT(pid, 0);
    const auto second = run({});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.errorOutput.find("Another instance of the agent is already running\n"),
              std::string::npos);
    EXPECT_EQ(run({"--once"}).exitCode, 1);
    EXPECT_EQ(run({"--print-config"}).exitCode, 0);
    EXPECT_EQ(kill(pid, 0), 0);
    const int status = stopChild(pid, 30);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(readWholeFile(lockFile), ""); // an agent that ended well leaves nothing to take over

    const std::string text = logText();
    EXPECT_EQ(text.find("  --------------- "), 19u) << text; // the banner is the log's first line
#ifdef __linux__
    utsname host{};
    uname(&host);
    EXPECT_NE(text.find(std::string("Linux kernel ") + host.release + "\n"), std::string::npos);
    EXPECT_EQ(text.find("macOS"), std::string::npos);
#endif
    EXPECT_EQ(text.find("Starting app engine"), text.rfind("Starting app engine")); // one engine, one log
    EXPECT_NE(text.find("Took over the lock file of an agent that no longer runs"), std::string::npos);
    EXPECT_TRUE(std::regex_search(
        text,
        std::regex(
            std::string("--------------- Varnoth Brelvane Agent Version [^]*The current user is ") +
            getpwuid(getuid())->pw_name +
            "\n[^]*Starting app engine[^]*\nSuppressErrorMessages: true\n[^]*Update signatures started")))
        << text;
    EXPECT_EQ(text.substr(text.size() - 8), "Exiting\n");
}

TEST_F(AgentProcessTest, OnceReportsTheRunThroughItsExitStatusAndStandardError) {
    const auto once = run({"--once"});
    EXPECT_TRUE(once.started);
    EXPECT_EQ(once.exitCode, 1);
    EXPECT_NE(once.errorOutput.find("Missing SignatureServerAddress configuration"), std::string::npos);
    EXPECT_EQ(logLines().back(),
              "Missing SignatureServerAddress configuration. Unable to update signatures.");
    EXPECT_EQ(run({"--version"}).output, "Varnoth Brelvane Agent 1.0.0.1\n");
    EXPECT_EQ(run({"--bogus"}).exitCode, 2);
}

TEST_F(AgentProcessTest, OnceNeedsNoDisplayAndEndsPromptlyOnSigtermWithExiting) {
    // A server that takes the connection and never answers: the run would wait 20 s for it.
    LoopbackListener silent;
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
              "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(silent.port()) +
                  "\nUserEmailAddress=anna@example.com\n");
    // DISPLAY names a display that is not there. The script classes come from a folder of their own, as a
    // Mac's tests have them played by the stand-in instead of Outlook.
    writeFile(root() / "scripts/OutlookScriptObj", "#!/bin/sh\n[ \"$1\" != getVersion ] || printf 99.1\n");
    std::filesystem::permissions(root() / "scripts/OutlookScriptObj", std::filesystem::perms::owner_all);
    const pid_t pid =
        startUntil("Successfully sent query",
                   {"/usr/bin/env", "-u", "QT_QPA_PLATFORM", "DISPLAY=:97",
                    "VARNOTH_STANDIN_SCRIPTS=" + (root() / "scripts").string(), VARNOTH_AGENT, "--once"});
    ASSERT_GT(pid, 0);
    std::this_thread::sleep_for(1500ms); // into the read, which the agent abandons as it ends
    const int status = stopChild(pid, 30);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status << "\n" << logText();
    EXPECT_EQ(logLines().back(), "Exiting");
    EXPECT_NE(logText().find("Outlook 99.1 is installed"), std::string::npos) << logText();
}

} // namespace
} // namespace varnoth::test
