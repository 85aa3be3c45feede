#include "platform/posix/ProcessScriptHost.h"
#include "platform/Platform.h"
#include "platform/Termination.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/ServerProcess.h"

#include <cerrno>
#include <csignal>
#include <thread>

namespace varnoth::test {
namespace {

const std::filesystem::path golden = VARNOTH_GOLDEN_DIR;

std::string described(const ScriptReply& reply) {
    return (reply.delivered ? "delivered" : "failed: " + reply.error) +
           (reply.text ? ", text " + *reply.text : "");
}

using ProcessScriptHostTest = AgentTest;

// Small programs in place of the bundle's Outlook script, run as real child processes.
TEST_F(ProcessScriptHostTest,
       ProcessScriptHostMakesObjectsFromExecutableResourcesAndReportsHowEachMessageEnded) {
    ProcessScriptHost host{std::chrono::seconds(30)};
    const auto resources = root() / "Resources", script = resources / "OutlookScriptObj";
    auto ports = Platform::ports();
    ports.scriptHost = &host;
    ports.bundle.resourcesFolder = resources;
    ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent"; // only passed on, never run
    Platform::install(ports);
    host.loadScripts();
    expectTranscript(
        "outlook/script-host", [&](const std::string& word, const std::string& rest) -> std::string {
            std::vector<std::string> arguments = caseArguments(rest);
            const auto send = [&](ProcessScriptHost& to) {
                auto object = to.makeObject("OutlookScriptObj");
                return object->send(arguments[0], {arguments.begin() + 1, arguments.end()});
            };
            if (word == "install") {
                std::filesystem::create_directories(resources);
                std::filesystem::copy_file(golden / "outlook/script-host/OutlookScriptObj", script,
                                           std::filesystem::copy_options::overwrite_existing);
                std::filesystem::permissions(script, std::filesystem::perms(std::stoi(rest, nullptr, 8)));
                return "done";
            } else if (word == "object" || word == "unloaded") {
                return (word == "object" ? host : ProcessScriptHost()).makeObject(rest) ? "made" : "none";
            } else if (word == "large") {
                std::string html = "<html>\r\n";
                while (html.size() < (1u << 20)) {
                    html +=
                        "<p style=\"color:#123\">caf\u00E9 \u2014 'quote' \"dq\" $(rm -rf /) \t line</p>\n";
                }
                arguments = {"createSignature:content:", arguments[0], html};
                const ScriptReply reply = send(host);
                return reply.text == arguments[1] + '\0' + html + '\0' ? "unchanged"
                                                                       : described(reply).substr(0, 200);
            } else if (word == "seen" || word == "ran") {
                return word == "seen" ? readWholeFile(script.string() + ".seen")
                                      : std::to_string(std::filesystem::exists(script.string() + ".ran"));
            } else if (word == "send") {
                return described(send(host));
            } else if (word == "impatient") {
                ProcessScriptHost impatient{std::chrono::milliseconds(300)};
                std::filesystem::remove(script.string() + ".pid");
                const std::string answer = described(send(impatient));
                const pid_t pid = std::stoi(readWholeFile(script.string() + ".pid"));
                // A grandchild is reaped by whoever adopted it, a moment later; a zombie is gone too.
                const auto gone = [pid] {
                    return (::kill(pid, 0) == -1 && errno == ESRCH) ||
                           PosixProcessLauncher()
                                   .run({"/bin/ps", {"-o", "stat=", "-p", std::to_string(pid)}, {}, {}, {}})
                                   .output.find('Z') != std::string::npos;
                };
                for (int i = 0; i < 100 && !gone(); ++i) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                }
                return answer + (gone() ? ", child gone" : ", child left");
            } else if (word == "launch") {
                return PosixProcessLauncher().launch(rest, {}) ? "started" : "not started";
            }
            ports.bundle.resourcesFolder.clear();
            Platform::install(ports);
            host.loadScripts();
            return "done";
        });
}

// A child that closes its output before it reads still gets all of its input; one that runs when the agent
// is asked to exit is stopped.
TEST_F(ProcessScriptHostTest, InputIsWrittenAfterTheChildClosedItsOutputAndExitStopsTheChild) {
    const auto copy = root() / "copy";
    const auto result = PosixProcessLauncher().run({"/bin/sh",
                                                    {"-c", "exec >&- 2>&-; cat > \"$0\"", copy.string()},
                                                    std::string(1 << 20, 'x'),
                                                    std::chrono::seconds(5),
                                                    {}});
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(readWholeFile(copy).size(), 1u << 20);
    // An agent asked to exit stops a running child at once instead of waiting for its limit.
    std::thread signal(
        [] { std::this_thread::sleep_for(std::chrono::milliseconds(100)), Termination::request(); });
    const auto stopped = PosixProcessLauncher().run({"/bin/sleep", {"60"}, {}, std::chrono::seconds(90), {}});
    signal.join();
    Termination::clear();
    EXPECT_TRUE(stopped.cancelled && !stopped.succeeded());
}

} // namespace
} // namespace varnoth::test
