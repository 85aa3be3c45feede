#include "launchd/LaunchControl.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace varnoth::test {
namespace {

using Words = std::vector<std::string>;

// Job files in the shapes that installers put into LaunchAgents folders, written by Python's plistlib
// (an independent writer), in XML and in binary form.
const char* const writeJobFiles = R"PY(
import plistlib, sys, os
XML, BINARY = plistlib.FMT_XML, plistlib.FMT_BINARY
jobs = {
    "homebrew.mxcl.postgresql.plist": (XML, {
        "Label": "homebrew.mxcl.postgresql", "RunAtLoad": True, "KeepAlive": True,
        "ProgramArguments": ["/usr/local/opt/postgresql/bin/postgres", "-D", "/usr/local/var/postgres"],
        "WorkingDirectory": "/usr/local", "StandardOutPath": "/usr/local/var/log/postgres.log",
        "StandardErrorPath": "/usr/local/var/log/postgres.log",
        "EnvironmentVariables": {"LC_ALL": "en_US.UTF-8", "PATH": "/usr/local/bin:/usr/bin:/bin"}}),
    "com.google.keystone.agent.plist": (BINARY, {
        "Label": "com.google.keystone.user.agent",
        "ProgramArguments": ["/Users/me/Library/Google/GoogleSoftwareUpdate/Agent", "-runMode", "ifneeded"],
        "StartInterval": 3623, "StartCalendarInterval": {"Weekday": 7, "Hour": 3, "Minute": 15},
        "LimitLoadToSessionType": ["Aqua"], "AbandonProcessGroup": True, "ProcessType": "Background",
        "LowPriorityIO": True, "Nice": 5, "StandardErrorPath": "/dev/null"}),
    "com.example.helper.plist": (XML, {
        "Label": "com.example.helper", "Program": "/Applications/Example.app/Contents/MacOS/ExampleHelper",
        "MachServices": {"com.example.helper.xpc": {"HideUntilCheckIn": True, "ResetAtClose": False},
                         "com.example.helper.events": {"HideUntilCheckIn": False, "ResetAtClose": True}},
        "ThrottleInterval": 10, "ExitTimeOut": 30, "EnablePressuredExit": True, "EnableTransactions": True,
        "ProcessType": "Interactive", "AssociatedBundleIdentifiers": ["com.example.app"],
        "Sockets": {"Listeners": {"SockServiceName": "8080"}}}),
    "org.example.sync.plist": (BINARY, {
        "Label": "org.example.sync", "ProgramArguments": ["/opt/sync/bin/sync", "Caf\u00e9 & <Bar> \u2713"],
        "WatchPaths": ["/Users/me/Documents/Inbox"], "QueueDirectories": ["/Users/me/spool", "/tmp/q"],
        "Umask": 18, "SoftResourceLimits": {"NumberOfFiles": 1024}, "Disabled": False,
        "HardResourceLimits": {"NumberOfFiles": 4096, "Core": 0}, "EnvironmentVariables": {},
        "StartCalendarInterval": {"Month": 12, "Day": 24, "Hour": 18, "Minute": 0}}),
    "local.every-rare-key.plist": (XML, {
        "Label": "local.every-rare-key", "ProgramArguments": ["/usr/libexec/tool"],
        "inetdCompatibility": {"Wait": False},
        "SessionCreate": True, "UserName": "nobody", "GroupName": "nogroup", "InitGroups": False,
        "RootDirectory": "/var/empty", "TimeOut": 60, "Debug": False, "WaitForDebugger": False,
        "LegacyTimers": True, "LaunchOnlyOnce": True, "StartOnMount": False, "OnDemand": True,
        "EnableGlobbing": False, "LimitLoadToHosts": ["build-01"], "LimitLoadFromHosts": [],
        "StandardInPath": "/dev/null", "LowPriorityBackgroundIO": True, "Nice": -10,
        "ProcessType": "Adaptive", "StartInterval": 0, "ExitTimeOut": -2**63}),
}
for name, (form, job) in jobs.items():
    with open(os.path.join(sys.argv[1], name), "wb") as out:
        plistlib.dump(job, out, fmt=form)
)PY";

// Each rewritten file is XML with the original's content and types (True is not 1), less the keys the
// job record does not know.
const char* const compareJobFiles = R"PY(
import plistlib, sys, os
original_folder, rewritten_folder, known = sys.argv[1], sys.argv[2], set(sys.argv[3].split(","))
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
    const auto in = root() / "in";
    const auto out = root() / "out";
    std::filesystem::create_directories(in);
    std::filesystem::create_directories(out);
    const auto written = runPython(writeJobFiles, {in.string()});
    ASSERT_TRUE(written.succeeded()) << written.error << written.errorOutput;

    // Between them the files hold every key; each is written back in table order, and the binary form
    // carries the same record.
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
        LaunchAgent rewritten = control.read(*agent.url);
        EXPECT_EQ(rewritten, agent);
        const auto keys = rootKeys(control.encoder.encode(agent));
        Words ordered;
        std::copy_if(jobRecordKeys().begin(), jobRecordKeys().end(), std::back_inserter(ordered),
                     [&](const std::string& key) { return std::count(keys.begin(), keys.end(), key) == 1; });
        EXPECT_EQ(keys, ordered);
        seen.insert(keys.begin(), keys.end());
        rewritten = PropertyListDecoder().decode<LaunchAgent>(binary.encode(agent));
        rewritten.url = agent.url;
        EXPECT_EQ(rewritten, agent);
    }
    EXPECT_EQ(seen.size(), jobRecordKeys().size());
    EXPECT_EQ(files, 5);
    std::string known;
    for (const auto& key : jobRecordKeys()) {
        known += (known.empty() ? "" : ",") + key;
    }
    const auto compared = runPython(compareJobFiles, {in.string(), out.string(), known});
    EXPECT_TRUE(compared.succeeded()) << compared.output << compared.errorOutput;
}

} // namespace
} // namespace varnoth::test
