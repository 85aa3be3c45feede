#include "platform/Platform.h"
#include "tests/faults/FaultTest.h"
#include "tests/support/ServerProcess.h"

#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

// Outlook (the script and the store behind it) fails while the server answers; the server's new
// contents make every signature change, so each one is written in the faulty run.
class OutlookFaultTest : public FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        startFromGoodRun();
        // The same mailbox with changed contents on a second server.
        const auto changed = root() / "changed";
        for (const char* file : {"new.html", "reply.html", "legal.html", "greet.html"}) {
            writeFile(changed / "templates" / file, std::string("<p>changed ") + file + "</p>");
        }
        writeFile(changed / "signatures.conf", readWholeFile(root() / "data/signatures.conf"));
        next = std::make_unique<ServerProcess>(std::vector<std::string>{}, changed.string());
    }
    void TearDown() override {
        setImmutable(storeFolder() / "signatures", false);
        setImmutable(storeFolder(), false);
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = &scripts;
        Platform::install(ports);
        next.reset();
        good.reset();
        FaultTest::TearDown();
    }

    // Runs the agent's script through a shell wrapper around the stand-in, with a short time limit.
    void useScript(const std::string& body, std::chrono::milliseconds limit = 2s) {
        const auto folder = root() / "resources";
        writeFile(folder / "OutlookScriptObj",
                  "#!/bin/sh\n" + body + "\nexec \"$VARNOTH_OUTLOOK_STANDIN\" \"$@\"\n");
        std::filesystem::permissions(folder / "OutlookScriptObj", std::filesystem::perms::owner_all);
        faultyScripts = std::make_unique<ProcessScriptHost>(limit);
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = faultyScripts.get();
        ports.bundle.resourcesFolder = folder;
        Platform::install(ports);
    }
    void restoreScript() {
        Platform::Ports ports = Platform::ports();
        ports.scriptHost = &scripts;
        ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
        Platform::install(ports);
    }
    // The ext4 immutable flag: not even root may add, remove or rename files in such a folder.
    static bool setImmutable(const std::filesystem::path& folder, bool on) {
        const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) {
            return false;
        }
        int flags = 0;
        bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
        if (done) {
            flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
            done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
        }
        ::close(fd);
        return done;
    }

    // The faulty run: it fails with the creation alert; every signature is either the old or the new
    // content in whole, and the list names only signatures the run did install.
    void runIntoTheFault() {
        configure(next->port());
        run(app);
        ASSERT_EQ(alerts.shown.size(), 1u) << logText();
        if (std::getenv("VARNOTH_SHOW_LOG") != nullptr) {
            std::cout << logText();
        }
        EXPECT_EQ(alerts.shown[0].message, "Signature creation failed");
        const auto stored = storedSignatures();
        for (const auto& [name, content] : stored) {
            EXPECT_TRUE(content == keptSignatures[name] || content.rfind("<p>changed ", 0) == 0)
                << name << ": " << content;
        }
        for (const auto& name : additionalSignatures()) {
            ASSERT_EQ(stored.count(name), 1u) << name;
            EXPECT_EQ(stored.at(name).rfind("<p>changed ", 0), 0u) << name;
        }
        const auto logs = wholeDeploymentLogs(next->logFolder(), 1);
        ASSERT_EQ(logs.size(), 1u);
        EXPECT_NE(logs[0].find("Error: failed to create signature "), std::string::npos);
    }
    // The next timer run, with Outlook well again, installs the whole changed set.
    void expectNextRunInstallsEverything() {
        alerts.shown.clear();
        run(app);
        EXPECT_TRUE(alerts.shown.empty()) << logText();
        const auto stored = storedSignatures();
        ASSERT_EQ(stored.size(), 4u);
        for (const auto& [name, content] : stored) {
            EXPECT_EQ(content.rfind("<p>changed ", 0), 0u) << name;
        }
        EXPECT_EQ(additionalSignatures().size(), 2u);
        const auto logs = wholeDeploymentLogs(next->logFolder(), 2);
        ASSERT_EQ(logs.size(), 2u);
    }
    std::unique_ptr<ServerProcess> next;
    std::unique_ptr<ProcessScriptHost> faultyScripts;
};

TEST_F(OutlookFaultTest, ScriptHangingPastItsLimit) {
    useScript("case \"$1\" in createSignature:content:) exec sleep 60;; esac", 500ms);
    const auto start = std::chrono::steady_clock::now();
    runIntoTheFault();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_EQ(count("Error: failed to create default new email signature"), 1);
    EXPECT_EQ(count("Error: failed to create signature Legal"), 1);
    EXPECT_EQ(storedSignatures(), keptSignatures); // nothing was written
    EXPECT_TRUE(additionalSignatures().empty());
    restoreScript();
    expectNextRunInstallsEverything();
}

TEST_F(OutlookFaultTest, ScriptCrashing) {
    useScript("case \"$1\" in createSignature:content:) kill -SEGV $$;; esac");
    runIntoTheFault();
    EXPECT_EQ(count("Error: failed to create signature Legal"), 1);
    EXPECT_EQ(storedSignatures(), keptSignatures);
    restoreScript();
    expectNextRunInstallsEverything();
}

TEST_F(OutlookFaultTest, ScriptMissing) {
    const auto empty = root() / "empty-resources";
    std::filesystem::create_directories(empty);
    Platform::Ports ports = Platform::ports();
    ports.bundle.resourcesFolder = empty;
    Platform::install(ports);
    runIntoTheFault();
    EXPECT_EQ(count("Error: cannot get Outlook version"), 1);
    EXPECT_EQ(count("Error: Cannot get Outlook version"), 1);
    EXPECT_EQ(storedSignatures(), keptSignatures);
    restoreScript();
    expectNextRunInstallsEverything();
}

TEST_F(OutlookFaultTest, StoreOnAFullDisk) {
    // A file size limit of zero makes every write fail with EFBIG, as a full disk fails with ENOSPC;
    // it holds for root too.
    useScript("trap '' XFSZ\nulimit -f 0");
    runIntoTheFault();
    EXPECT_EQ(count("Error: failed to create signature Legal"), 1);
    EXPECT_EQ(storedSignatures(), keptSignatures);
    EXPECT_TRUE(additionalSignatures().empty());
    // No temporary file is left behind.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(storeFolder())) {
        EXPECT_EQ(entry.path().filename().string().rfind(".tmp", 0), std::string::npos) << entry.path();
    }
    restoreScript();
    expectNextRunInstallsEverything();
}

TEST_F(OutlookFaultTest, StoreOnAReadOnlyFolder) {
    // Tests run as root, who ignores permission bits; the immutable flag stops root as well.
    if (!setImmutable(storeFolder() / "signatures", true) || !setImmutable(storeFolder(), true)) {
        setImmutable(storeFolder() / "signatures", false);
        GTEST_SKIP() << "the file system has no immutable flag";
    }
    runIntoTheFault();
    EXPECT_EQ(count("Error: failed to create signature Legal"), 1);
    EXPECT_EQ(storedSignatures(), keptSignatures);
    setImmutable(storeFolder() / "signatures", false);
    setImmutable(storeFolder(), false);
    expectNextRunInstallsEverything();
}

} // namespace
} // namespace varnoth::test
