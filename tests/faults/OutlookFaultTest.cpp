#include "platform/Platform.h"
#include "tests/support/RunTest.h"
#include "tests/support/ServerProcess.h"

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// How Outlook (the script and the store behind it) fails; the shell lines run before the stand-in.
struct OutlookFault {
    const char* title;
    std::string script; // empty: the bundle has no script at all
    bool unwritableStore = false;
};

// Names the parameter in ctest's test names and failure messages instead of its bytes.
void PrintTo(const OutlookFault& fault, std::ostream* out) {
    *out << fault.title;
}

// Outlook fails while the server answers with changed contents, so every signature is written in the
// faulty run: the run fails with the creation alert and reports the failure, nothing half-written is
// left, the list names only what was installed, and the next timer run with Outlook well again installs
// everything.
class OutlookFaultTest : public RunTest, public testing::WithParamInterface<OutlookFault> {
protected:
    void SetUp() override {
        RunTest::SetUp();
        startFromGoodRun();
        const auto changed = root() / "changed";
        for (const char* file : {"new.html", "reply.html", "legal.html", "greet.html"}) {
            writeFile(changed / "templates" / file, std::string("<p>changed ") + file + "</p>");
        }
        writeFile(changed / "signatures.conf", readWholeFile(root() / "data/signatures.conf"));
        next = std::make_unique<ServerProcess>(std::vector<std::string>{}, changed.string());
    }
    void TearDown() override {
        next.reset();
        RunTest::TearDown();
    }
    std::unique_ptr<ServerProcess> next;
};

TEST_P(OutlookFaultTest, RunFailsKeepsWholeSignaturesAndTheNextRunInstallsEverything) {
    const OutlookFault& fault = GetParam();
    const auto folder = root() / "resources";
    std::filesystem::create_directories(folder);
    if (!fault.script.empty()) {
        writeFile(folder / "OutlookScriptObj",
                  "#!/bin/sh\n" + fault.script + "\nexec \"$VARNOTH_OUTLOOK_STANDIN\" \"$@\"\n");
        std::filesystem::permissions(folder / "OutlookScriptObj", std::filesystem::perms::owner_all);
    }
    const auto lock = storeFolder() / ".lock";
    if (fault.unwritableStore) {
        // Every change of the store opens its lock file first; a folder in its place fails that open
        // (EISDIR) for any user, root included, while the signatures stay readable as they were.
        std::filesystem::remove(lock);
        std::filesystem::create_directory(lock);
    }
    ProcessScriptHost faultyScripts(5s); // far beyond a call on a busy machine; a hanging one waits it out
    Platform::Ports ports = Platform::ports();
    ports.scriptHost = &faultyScripts;
    ports.bundle.resourcesFolder =
        fault.unwritableStore ? std::filesystem::path(VARNOTH_TEST_RESOURCES) : folder;
    Platform::install(ports);

    configure(next->port());
    run(app);
    // What the user and the server see; each fault's own log lines are the script host's to test.
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].message, "Signature creation failed");
    const auto reports = wholeDeploymentLogs(next->logFolder(), 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].result, "Failure");
    EXPECT_EQ(storedSignatures(), keptSignatures);
    EXPECT_TRUE(additionalSignatures().empty());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(storeFolder())) {
        EXPECT_EQ(entry.path().filename().string().rfind(".tmp", 0), std::string::npos) << entry.path();
    }

    if (fault.unwritableStore) {
        std::filesystem::remove(lock);
    }
    ports.scriptHost = &scripts;
    ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
    Platform::install(ports);
    expectNextRunWorks(app, next->port(), next->logFolder());
    for (const auto& [name, content] : storedSignatures()) {
        EXPECT_EQ(content.rfind("<p>changed ", 0), 0u) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, OutlookFaultTest,
    testing::Values(
        // The first creation hangs until its limit stops it, the later ones fail at once.
        OutlookFault{"ScriptHangingPastItsLimit",
                     "case \"$1\" in createSignature:content:)\n"
                     "  [ -e \"$0.hung\" ] && exit 1; : > \"$0.hung\"; exec sleep 60;; esac"},
        OutlookFault{"ScriptCrashing", "case \"$1\" in createSignature:content:) kill -SEGV $$;; esac"},
        OutlookFault{"ScriptMissing", ""},
        // A file size limit of zero fails every write as a full disk does, for root too.
        OutlookFault{"StoreOnAFullDisk", "trap '' XFSZ\nulimit -f 0"},
        // Tests run as root, who ignores permission bits but cannot open a folder for writing.
        OutlookFault{"StoreRefusingEveryWrite", "", true}),
    [](const testing::TestParamInfo<OutlookFault>& info) { return std::string(info.param.title); });

} // namespace
} // namespace varnoth::test
