#include "launchd/LaunchControl.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

namespace varnoth::test {
namespace {

using Words = std::vector<std::string>;

// Every key of a job record, in the order the record writes them.
const char* const jobRecordKeys =
    "Label Disabled EnableGlobbing Program ProgramArguments WorkingDirectory StandardInPath StandardOutPath "
    "StandardErrorPath EnvironmentVariables RunAtLoad StartInterval StartCalendarInterval StartOnMount "
    "OnDemand "
    "KeepAlive WatchPaths QueueDirectories Umask SessionCreate GroupName UserName InitGroups RootDirectory "
    "LaunchOnlyOnce LimitLoadToSessionType LimitLoadToHosts LimitLoadFromHosts AbandonProcessGroup "
    "EnablePressuredExit EnableTransactions ExitTimeOut inetdCompatibility HardResourceLimits "
    "SoftResourceLimits "
    "TimeOut ThrottleInterval MachServices Debug WaitForDebugger LegacyTimers LowPriorityIO "
    "LowPriorityBackgroundIO "
    "Nice ProcessType";

// Job files in the shapes that installers write, by Python's plistlib (an independent writer), in XML and
// binary form; between them they hold every key. Each rewritten file must be XML with the original's
// content and types (True is not 1), less the keys the job record does not know.
const char* const writeJobFiles = R"PY(
import plistlib, sys, os
jobs = {
    "homebrew.mxcl.postgresql.plist": (plistlib.FMT_XML, {
        "Label": "homebrew.mxcl.postgresql", "RunAtLoad": True, "KeepAlive": True, "WorkingDirectory": "/usr/local",
        "ProgramArguments": ["/usr/local/opt/postgresql/bin/postgres", "-D", "/usr/local/var/postgres"],
        "StandardOutPath": "/usr/local/var/log/postgres.log", "StandardErrorPath": "/dev/null",
        "EnvironmentVariables": {"LC_ALL": "en_US.UTF-8"}, "ThrottleInterval": 10, "ExitTimeOut": -2**63,
        "MachServices": {"a.xpc": {"HideUntilCheckIn": True, "ResetAtClose": False},
                         "a.events": {"HideUntilCheckIn": False, "ResetAtClose": True}},
        "EnablePressuredExit": True, "EnableTransactions": True, "ProcessType": "Interactive",
        "AssociatedBundleIdentifiers": ["com.example.app"], "Sockets": {"Listeners": {"SockServiceName": "8080"}},
        "inetdCompatibility": {"Wait": False}, "SessionCreate": True, "UserName": "nobody", "GroupName": "nogroup",
        "InitGroups": False, "RootDirectory": "/var/empty", "TimeOut": 60, "Debug": False, "WaitForDebugger": False,
        "LegacyTimers": True, "LaunchOnlyOnce": True, "StartOnMount": False, "OnDemand": True}),
    "org.example.sync.plist": (plistlib.FMT_BINARY, {
        "Label": "org.example.sync", "Program": "/opt/sync/bin/sync", "WatchPaths": ["/Users/me/Inbox"],
        "ProgramArguments": ["/opt/sync/bin/sync", "Caf\u00e9 & <Bar> \u2713"], "Disabled": False,
        "QueueDirectories": ["/Users/me/spool", "/tmp/q"], "Umask": 18, "SoftResourceLimits": {"NumberOfFiles": 1024},
        "HardResourceLimits": {"NumberOfFiles": 4096, "Core": 0}, "EnvironmentVariables": {},
        "StartCalendarInterval": {"Month": 12, "Weekday": 7, "Day": 24, "Hour": 18, "Minute": 0}, "StartInterval": 0,
        "LimitLoadToSessionType": ["Aqua"], "AbandonProcessGroup": True, "LowPriorityIO": True, "Nice": -10,
        "EnableGlobbing": False, "LimitLoadToHosts": ["build-01"], "LimitLoadFromHosts": [],
        "StandardInPath": "/dev/null", "LowPriorityBackgroundIO": True, "ProcessType": "Background"}),
}
for name, (form, job) in jobs.items():
    with open(os.path.join(sys.argv[1], name), "wb") as out:
        plistlib.dump(job, out, fmt=form)
)PY";

const char* const compareJobFiles = R"PY(
import plistlib, sys, os
original_folder, rewritten_folder, known = sys.argv[1], sys.argv[2], set(sys.argv[3].split())
def typed(value):
    if isinstance(value, dict):
        return {key: typed(item) for key, item in value.items()}
    if isinstance(value, list):
        return [typed(item) for item in value]
    return (type(value).__name__, value)
failed = False
for name in sorted(os.listdir(original_folder)):
    with open(os.path.join(original_folder, name), "rb") as f:
        original = {key: item for key, item in plistlib.load(f).items() if key in known}
    with open(os.path.join(rewritten_folder, name), "rb") as f:
        data = f.read()
    if not data.startswith(b"<?xml") or typed(original) != typed(plistlib.loads(data)):
        print(name, "original:", typed(original), "rewritten:", data.decode()); failed = True
sys.exit(1 if failed else 0)
)PY";

class RealWorldJobFilesTest : public AgentTest {
protected:
    ProcessLauncher::Result runPython(const char* script, std::vector<std::string> arguments) {
        ProcessLauncher::Request request;
        request.program = "/usr/bin/python3";
        request.arguments = {"-c", script};
        request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
        request.timeLimit = std::chrono::seconds(60);
        return PosixProcessLauncher().run(request);
    }
};

TEST_F(RealWorldJobFilesTest, FilesOfAnotherWriterComeBackWithTheSameContent) {
    if (!std::filesystem::exists("/usr/bin/python3")) {
        GTEST_SKIP() << "python3 is not installed";
    }
    const auto in = root() / "in", out = root() / "out";
    std::filesystem::create_directories(in);
    std::filesystem::create_directories(out);
    const auto written = runPython(writeJobFiles, {in.string()});
    ASSERT_TRUE(written.succeeded()) << written.error << written.errorOutput;

    // Each file is written back in table order, and the binary form carries the same record.
    Words allKeys;
    std::istringstream names(jobRecordKeys);
    for (std::string name; names >> name;) {
        allKeys.push_back(name);
    }
    const LaunchControl control;
    PropertyListEncoder binary;
    binary.outputFormat = PropertyListEncoder::OutputFormat::binary;
    std::set<std::string> seen;
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(in)) {
        ++files;
        SCOPED_TRACE(entry.path().filename().string());
        LaunchAgent agent = control.read(entry.path());
        EXPECT_EQ(agent.url, entry.path());
        control.writeTo(agent, out / entry.path().filename());
        EXPECT_EQ(control.read(*agent.url), agent);
        const auto keys = rootKeys(control.encoder.encode(agent));
        Words ordered;
        std::copy_if(allKeys.begin(), allKeys.end(), std::back_inserter(ordered),
                     [&](const std::string& key) { return std::count(keys.begin(), keys.end(), key) == 1; });
        EXPECT_EQ(keys, ordered);
        seen.insert(keys.begin(), keys.end());
        LaunchAgent fromBinary = PropertyListDecoder().decode<LaunchAgent>(binary.encode(agent));
        fromBinary.url = agent.url;
        EXPECT_EQ(fromBinary, agent);
    }
    EXPECT_EQ(seen.size(), allKeys.size());
    EXPECT_EQ(files, 2);
    const auto compared = runPython(compareJobFiles, {in.string(), out.string(), jobRecordKeys});
    EXPECT_TRUE(compared.succeeded()) << compared.output << compared.errorOutput;
}

} // namespace
} // namespace varnoth::test
