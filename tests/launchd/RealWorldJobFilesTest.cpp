#include "launchd/LaunchControl.h"
#include "platform/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

namespace varnoth::test {
namespace {

// Job files in the shapes that installers put into LaunchAgents folders, written by Python's plistlib
// (an independent writer), in XML and in binary form.
const char* const writeJobFiles = R"PY(
import plistlib, sys, os
folder = sys.argv[1]
XML, BINARY = plistlib.FMT_XML, plistlib.FMT_BINARY
jobs = {
    "homebrew.mxcl.postgresql.plist": (XML, {
        "Label": "homebrew.mxcl.postgresql",
        "ProgramArguments": ["/usr/local/opt/postgresql/bin/postgres", "-D", "/usr/local/var/postgres"],
        "RunAtLoad": True,
        "KeepAlive": True,
        "WorkingDirectory": "/usr/local",
        "StandardOutPath": "/usr/local/var/log/postgres.log",
        "StandardErrorPath": "/usr/local/var/log/postgres.log",
        "EnvironmentVariables": {"LC_ALL": "en_US.UTF-8", "PATH": "/usr/local/bin:/usr/bin:/bin"},
    }),
    "com.google.keystone.agent.plist": (BINARY, {
        "Label": "com.google.keystone.user.agent",
        "ProgramArguments": ["/Users/me/Library/Google/GoogleSoftwareUpdate/Agent", "-runMode", "ifneeded"],
        "StartInterval": 3623,
        "StartCalendarInterval": {"Weekday": 7, "Hour": 3, "Minute": 15},
        "LimitLoadToSessionType": ["Aqua"],
        "AbandonProcessGroup": True,
        "ProcessType": "Background",
        "LowPriorityIO": True,
        "Nice": 5,
        "StandardErrorPath": "/dev/null",
    }),
    "com.example.helper.plist": (XML, {
        "Label": "com.example.helper",
        "Program": "/Applications/Example.app/Contents/MacOS/ExampleHelper",
        "MachServices": {"com.example.helper.xpc": {"HideUntilCheckIn": True, "ResetAtClose": False},
                         "com.example.helper.events": {"HideUntilCheckIn": False, "ResetAtClose": True}},
        "ThrottleInterval": 10,
        "ExitTimeOut": 30,
        "EnablePressuredExit": True,
        "EnableTransactions": True,
        "ProcessType": "Interactive",
    }),
    "org.example.sync.plist": (BINARY, {
        "Label": "org.example.sync",
        "ProgramArguments": ["/opt/sync/bin/sync", "--watch", "Caf\u00e9 & <Bar> \u2713"],
        "WatchPaths": ["/Users/me/Documents/Inbox"],
        "QueueDirectories": ["/Users/me/Library/Spool/sync", "/tmp/sync-queue"],
        "Umask": 18,
        "SoftResourceLimits": {"NumberOfFiles": 1024},
        "HardResourceLimits": {"NumberOfFiles": 4096, "Core": 0},
        "Disabled": False,
        "EnvironmentVariables": {},
        "StartCalendarInterval": {"Month": 12, "Day": 24, "Hour": 18, "Minute": 0},
    }),
    "local.every-rare-key.plist": (XML, {
        "Label": "local.every-rare-key",
        "ProgramArguments": ["/usr/libexec/tool"],
        "inetdCompatibility": {"Wait": False},
        "SessionCreate": True, "UserName": "nobody", "GroupName": "nogroup", "InitGroups": False,
        "RootDirectory": "/var/empty", "TimeOut": 60, "Debug": False, "WaitForDebugger": False,
        "LegacyTimers": True, "LaunchOnlyOnce": True, "StartOnMount": False, "OnDemand": True,
        "EnableGlobbing": False, "LimitLoadToHosts": ["build-01"], "LimitLoadFromHosts": [],
        "StandardInPath": "/dev/null", "LowPriorityBackgroundIO": True, "Nice": -10,
        "ProcessType": "Adaptive", "StartInterval": 0,
    }),
    "com.vendor.updater.plist": (BINARY, {
        "Label": "com.vendor.updater",
        "Program": "/Library/Application Support/Vendor/updater",
        "RunAtLoad": False,
        "AssociatedBundleIdentifiers": ["com.vendor.app"],
        "POSIXSpawnType": "Interactive",
        "Sockets": {"Listeners": {"SockServiceName": "8080"}},
    }),
}
for name, (form, job) in jobs.items():
    with open(os.path.join(folder, name), "wb") as out:
        plistlib.dump(job, out, fmt=form)
)PY";

// Equal content with types (True is not 1), after taking away the keys the job record does not know.
const char* const compareJobFiles = R"PY(
import plistlib, sys
known = set(sys.argv[3].split(","))
def typed(value):
    if isinstance(value, dict):
        return {key: typed(item) for key, item in value.items()}
    if isinstance(value, list):
        return [typed(item) for item in value]
    return (type(value).__name__, value)
with open(sys.argv[1], "rb") as f:
    original = plistlib.load(f)
with open(sys.argv[2], "rb") as f:
    data = f.read()
    rewritten = plistlib.loads(data)
original = {key: item for key, item in original.items() if key in known}
if not data.startswith(b"<?xml"):
    print("not XML"); sys.exit(1)
if typed(original) != typed(rewritten):
    print("original:", typed(original)); print("rewritten:", typed(rewritten)); sys.exit(1)
print("equal")
)PY";

const char* const knownKeys =
    "Label,Disabled,EnableGlobbing,Program,ProgramArguments,WorkingDirectory,StandardInPath,StandardOutPath,"
    "StandardErrorPath,EnvironmentVariables,RunAtLoad,StartInterval,StartCalendarInterval,StartOnMount,"
    "OnDemand,"
    "KeepAlive,WatchPaths,QueueDirectories,Umask,SessionCreate,GroupName,UserName,InitGroups,RootDirectory,"
    "LaunchOnlyOnce,LimitLoadToSessionType,LimitLoadToHosts,LimitLoadFromHosts,AbandonProcessGroup,"
    "EnablePressuredExit,EnableTransactions,ExitTimeOut,inetdCompatibility,HardResourceLimits,"
    "SoftResourceLimits,"
    "TimeOut,ThrottleInterval,MachServices,Debug,WaitForDebugger,LegacyTimers,LowPriorityIO,"
    "LowPriorityBackgroundIO,Nice,ProcessType";

std::optional<std::filesystem::path> python() {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::filesystem::path candidate = std::filesystem::path(folder) / "python3";
        if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::nullopt;
}

class RealWorldJobFilesTest : public AgentTest {
protected:
    ProcessLauncher::Result runPython(const std::string& script, std::vector<std::string> arguments) {
        ProcessLauncher::Request request;
        request.program = *interpreter;
        request.arguments = {"-c", script};
        request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
        request.timeLimit = std::chrono::seconds(60);
        return PosixProcessLauncher().run(request);
    }

    std::optional<std::filesystem::path> interpreter = python();
};

TEST_F(RealWorldJobFilesTest, FilesOfAnotherWriterComeBackWithTheSameContent) {
    if (!interpreter) {
        GTEST_SKIP() << "python3 is not installed";
    }
    const auto in = root() / "in";
    const auto out = root() / "out";
    std::filesystem::create_directories(in);
    std::filesystem::create_directories(out);
    const auto written = runPython(writeJobFiles, {in.string()});
    ASSERT_TRUE(written.succeeded()) << written.error << written.errorOutput;

    const LaunchControl control;
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(in)) {
        ++files;
        SCOPED_TRACE(entry.path().filename().string());
        LaunchAgent agent = control.read(entry.path());
        EXPECT_EQ(agent.url, entry.path());
        control.writeTo(agent, out / entry.path().filename());
        const auto compared =
            runPython(compareJobFiles, {entry.path().string(), agent.url->string(), knownKeys});
        EXPECT_TRUE(compared.succeeded()) << compared.output << compared.errorOutput;
    }
    EXPECT_EQ(files, 6);
}

TEST_F(RealWorldJobFilesTest, ShapesOutsideTheRecordAreRefusedWhole) {
    if (!interpreter) {
        GTEST_SKIP() << "python3 is not installed";
    }
    // Forms launchd accepts but the record does not model: KeepAlive conditions, several calendar
    // entries, a Mach service given as a bare Boolean.
    const char* const script = R"PY(
import plistlib, sys, os
shapes = {
    "keepalive.plist": {"Label": "a", "KeepAlive": {"SuccessfulExit": False}},
    "calendar.plist": {"Label": "b", "StartCalendarInterval": [{"Hour": 1}, {"Hour": 13}]},
    "mach.plist": {"Label": "c", "MachServices": {"com.c.xpc": True}},
    "session.plist": {"Label": "d", "LimitLoadToSessionType": "Aqua"},
}
for name, job in shapes.items():
    with open(os.path.join(sys.argv[1], name), "wb") as out:
        plistlib.dump(job, out, fmt=plistlib.FMT_BINARY)
)PY";
    const auto written = runPython(script, {root().string()});
    ASSERT_TRUE(written.succeeded()) << written.errorOutput;
    const LaunchControl control;
    for (const char* name : {"keepalive.plist", "calendar.plist", "mach.plist", "session.plist"}) {
        EXPECT_THROW(control.read(root() / name), PropertyListError) << name;
    }
}

} // namespace
} // namespace varnoth::test
