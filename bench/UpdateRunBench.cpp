// A whole timer run, as the agent makes it, against the demo signature server on loopback and the
// Outlook stand-in, with 0, 20, 200 and 500 (the most an answer may hold) additional signatures. The main
// queue runs on virtual time, so the measured time is the run's own work beyond the one-second wait
// before the answer is read.
// Compared with, in the same run: one message of each kind to the Outlook script (one child process), the
// unit that each installed signature costs, and a bare start of the stand-in.

#include "agent/AppDelegate.h"
#include "base/Logger.h"
#include "config/Config.h"
#include "outlook/OutlookHandler.h"
#include "platform/Application.h"
#include "platform/Platform.h"
#include "platform/deterministic/FixedHostInfo.h"
#include "platform/deterministic/ManualAccessibility.h"
#include "platform/deterministic/ManualMainQueue.h"
#include "platform/deterministic/MemoryUserDefaults.h"
#include "platform/deterministic/RecordingAlerts.h"
#include "platform/deterministic/RecordingStatusItem.h"
#include "platform/deterministic/RecordingWorkspace.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/support/ServerProcess.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace varnoth;
using namespace std::chrono_literals;

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// A timer run never activates or ends the application.
class QuietApplication final : public Application {
public:
    void activate() override {}
    void showAbout() override {}
    void terminate() override {}
};

// A private HOME with the demo server, the stand-in's store and the agent's ports; made once.
class Scene {
public:
    Scene() {
        std::string pattern = (std::filesystem::temp_directory_path() / "varnoth-run-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        root_ = pattern;
        setenv("HOME", (root_ / "home").c_str(), 1);
        setenv("XDG_STATE_HOME", (root_ / "home/.local/state").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (root_ / "home/.config").c_str(), 1);
        setenv("XDG_DATA_HOME", (root_ / "home/.local/share").c_str(), 1);
        setenv("VARNOTH_SYSTEM_CONFIG_DIR", (root_ / "etc/Varnoth").c_str(), 1);
        setenv("VARNOTH_OUTLOOK_STANDIN", VARNOTH_OUTLOOK_STANDIN_PROGRAM, 1);
        unsetenv("VARNOTH_OUTLOOK_ACCOUNT");
        Logger::setLogFilePath(root_ / "home/.local/state/agent.log");

        std::string mapping;
        std::string html;
        while (html.size() < 2000) {
            html += "<p style=\"font-family: Helvetica\">Viele Gr\u00FC\u00DFe \u2013 \u6771\u4EAC</p>\n";
        }
        writeFile(root_ / "data/templates/new.html", "<p>New</p>" + html);
        writeFile(root_ / "data/templates/reply.html", "<p>Reply</p>" + html);
        for (int count : {0, 20, 200, 500}) {
            mapping += "[mailbox n" + std::to_string(count) +
                       "@example.com]\ndefault = new.html\nreply = reply.html\n";
            for (int i = 0; i < count; ++i) {
                const std::string file = "s" + std::to_string(i) + ".html";
                writeFile(root_ / "data/templates" / file, "<p>" + std::to_string(i) + "</p>" + html);
                mapping += "additional = Signature " + std::to_string(i) + " | " + file + "\n";
            }
        }
        writeFile(root_ / "data/signatures.conf", mapping);
        server_ =
            std::make_unique<test::ServerProcess>(std::vector<std::string>{}, (root_ / "data").string());

        Platform::Ports ports;
        ports.mainQueue = &queue_;
        ports.clock = &queue_;
        ports.userDefaults = &defaults_;
        ports.hostInfo = &host_;
        ports.accessibility = &accessibility_;
        ports.statusItem = &statusItem_;
        ports.alerts = &alerts_;
        ports.workspace = &workspace_;
        ports.scriptHost = &scripts_;
        ports.application = &application_;
        ports.bundle.name = "Varnoth Brelvane Agent";
        ports.bundle.shortVersion = "1.0.0";
        ports.bundle.version = "1";
        ports.bundle.resourcesFolder = VARNOTH_RESOURCES_DIR;
        Platform::install(ports);
    }
    ~Scene() {
        Platform::install({});
        server_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    void configure(int additional) {
        writeFile(root_ / "home/.config/Varnoth/Varnoth Brelvane Agent/Varnoth Brelvane Agent.txt",
                  "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(server_->port()) +
                      "\nUserEmailAddress=n" + std::to_string(additional) +
                      "@example.com\nSuppressErrorMessages=1\n");
        Config::setShared(nullptr);
        OutlookHandler::defaultAccount.reset();
    }
    // One timer run to its end; false when it failed.
    bool run(AppDelegate& app) {
        bool succeeded = false;
        app.setUpdateFinishedHandler([&](bool success) { succeeded = success; });
        app.autoUpdateSignatures();
        queue_.runUntilIdle();
        queue_.advance(1s);
        queue_.runUntilIdle();
        std::error_code ignored;
        std::filesystem::resize_file(Logger::logFilePath(), 0, ignored);
        return succeeded;
    }
    ScriptHost& scripts() { return scripts_; }

private:
    std::filesystem::path root_;
    std::unique_ptr<test::ServerProcess> server_;
    ManualMainQueue queue_;
    MemoryUserDefaults defaults_;
    FixedHostInfo host_;
    ManualAccessibility accessibility_;
    RecordingStatusItem statusItem_;
    RecordingAlerts alerts_;
    RecordingWorkspace workspace_;
    ProcessScriptHost scripts_;
    QuietApplication application_;
};

Scene& scene() {
    static Scene instance;
    return instance;
}

void TimerRun(benchmark::State& state) {
    Scene& world = scene();
    world.configure(static_cast<int>(state.range(0)));
    AppDelegate app;
    if (!world.run(app)) { // the first run creates the default signatures; later runs compare them
        state.SkipWithError("the first run failed");
        return;
    }
    for (auto _ : state) {
        if (!world.run(app)) {
            state.SkipWithError("a run failed");
            break;
        }
    }
}
BENCHMARK(TimerRun)
    ->Arg(0)
    ->Arg(20)
    ->Arg(200)
    ->Arg(500)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MinTime(2.0);

// One message of each kind to the Outlook script: a child process, the script, which hands the message to
// the stand-in. Beside them a bare start of the stand-in through the same launcher, so that what an
// operation costs beyond starting a program shows.
void OutlookOperation(benchmark::State& state, const char* selector, std::vector<std::string> arguments) {
    scene();
    Platform::scriptHost().loadScripts();
    for (auto _ : state) {
        auto object = Platform::scriptHost().makeObject("OutlookScriptObj");
        if (!object || !object->send(selector, arguments).delivered) {
            state.SkipWithError("the script did not answer");
            break;
        }
    }
}
const std::string benchSignature = "<p style=\"font-family: Helvetica\">Viele Gr\u00FC\u00DFe</p>";
BENCHMARK_CAPTURE(OutlookOperation, getVersion, "getVersion", {})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OutlookOperation, getDefaultAccount, "getDefaultAccount", {})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OutlookOperation, getSignatureNames, "getSignatureNames", {})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OutlookOperation, createSignature, "createSignature:content:", {"Bench", benchSignature})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OutlookOperation, getSignature, "getSignature:", {"Bench"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OutlookOperation, deleteSignature, "deleteSignature:", {"Bench"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void StandInBareStart(benchmark::State& state) {
    PosixProcessLauncher launcher;
    for (auto _ : state) {
        if (!launcher.run({VARNOTH_OUTLOOK_STANDIN_PROGRAM, {"help"}, {}, 30s, {}}).succeeded()) {
            state.SkipWithError("the stand-in did not start");
            break;
        }
    }
}
BENCHMARK(StandInBareStart)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
