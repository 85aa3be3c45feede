#include "launchd/LaunchControl.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/ServerProcess.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;

// launchctl is a shell script that appends each command line it gets (the arguments joined with "|")
// to a file and answers "list" with the table the test sets.
class LaunchControlTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        folder = root() / "home/Library/LaunchAgents";
        std::filesystem::create_directories(folder);
        writeFile(root() / "launchctl", "#!/bin/sh\nline=\"$1\"; shift\n"
                                        "for argument in \"$@\"; do line=\"$line|$argument\"; done\n"
                                        "printf '%s\\n' \"$line\" >> \"$0.calls\"\n"
                                        "if [ \"$line\" = list ]; then cat \"$0.list\"; fi\n");
        std::filesystem::permissions(root() / "launchctl", std::filesystem::perms::owner_all);
        LaunchControl::Options options;
        options.launchctl = root() / "launchctl";
        control.setOptions(options);
        LaunchControl::shared().setOptions(options);
    }
    void TearDown() override {
        LaunchControl::shared().setOptions({});
        AgentTest::TearDown();
    }

    void writeJob(const std::string& name, const std::string& label) const {
        writeFile(folder / name, xmlPlist("<key>Label</key><string>" + label + "</string>"));
    }

    // The recorded command lines, once there are count of them (launchctl is not waited for).
    Lines calls(std::size_t count) const {
        Lines lines;
        for (int attempt = 0; attempt < 1000 && lines.size() < count; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(attempt == 0 ? 0 : 10));
            std::ifstream in(root() / "launchctl.calls");
            lines.clear();
            for (std::string line; std::getline(in, line);) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    std::filesystem::path folder;
    LaunchControl control; // the LaunchAgents folder under the test's HOME
};

TEST_F(LaunchControlTest, WriteAndReadNameRules) {
    EXPECT_EQ(control.launchAgentsURL(), folder);
    LaunchAgent agent("agent-job", {"/bin/true"});
    control.write(agent);
    EXPECT_EQ(agent.url, folder / "agent-job.plist");
    EXPECT_EQ(control.read(folder / "agent-job.plist"), agent);
    EXPECT_THROW(control.writeTo(agent, root() / "missing/folder/job"), std::filesystem::filesystem_error);
    EXPECT_EQ(agent.url, folder / "agent-job.plist"); // a failed write keeps the old location

    for (const auto& [given, written] :
         std::vector<std::pair<std::string, std::string>>{{"job", "job.plist"},
                                                          {"job.plist", "job.plist"},
                                                          {"job.PLIST", "job.PLIST.plist"},
                                                          {"a.b", "a.b.plist"}}) {
        LaunchAgent named("named");
        control.writeCalled(named, given);
        EXPECT_EQ(named.url, folder / written) << given;
        EXPECT_TRUE(std::filesystem::exists(folder / written)) << given;
    }

    // A link at the path is replaced by the file, never written through; no temporary file is left.
    writeFile(root() / "elsewhere.plist", "kept");
    std::filesystem::create_symlink(root() / "elsewhere.plist", folder / "linked.plist");
    LaunchAgent linked("linked");
    control.writeCalled(linked, "linked.plist");
    EXPECT_EQ(std::filesystem::symlink_status(folder / "linked.plist").type(),
              std::filesystem::file_type::regular);
    EXPECT_EQ(std::filesystem::file_size(root() / "elsewhere.plist"), 4u) << "the link's target was written";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
    }

    // Reading takes the name as given: no extension is added.
    writeJob("plain", "without-extension");
    EXPECT_EQ(control.readCalled("plain").url, folder / "plain");
    EXPECT_THROW(control.readCalled("absent"), std::filesystem::filesystem_error);
}

TEST_F(LaunchControlTest, LocateTakesTheLastFileOfTheLabelAndSkipsTheRest) {
    writeJob("a.plist", "com.example.job");
    writeJob("b.plist", "com.example.job");
    writeJob(".c.plist", "com.example.job"); // hidden
    writeJob("d.plist", "com.example.job.helper");
    writeJob("Com.plist", "COM.EXAMPLE.JOB");
    writeFile(folder / "e.plist", "<?xml version=\"1.0\"?><plist><dict><key>Label</key>");
    writeFile(folder / "f.plist", "\x01\x02 binary junk");
    std::filesystem::create_directories(folder / "g.plist");
    writeJob("g.plist/inner.plist", "com.example.job");         // not descended into
    ASSERT_EQ(::mkfifo((folder / "h.plist").c_str(), 0600), 0); // nobody writes: reading it would block
    writeJob("../linked-target.plist", "com.example.job");
    std::filesystem::create_symlink(root() / "linked-target.plist", folder / "i.plist");

    LaunchAgent agent("com.example.job");
    control.locate(agent);
    EXPECT_EQ(agent.url, folder / "b.plist");

    LaunchAgent missing("com.example.none");
    missing.url = root() / "kept.plist";
    control.locate(missing);
    EXPECT_EQ(missing.url, root() / "kept.plist");

    std::filesystem::remove_all(folder);
    EXPECT_THROW(control.locate(agent), std::filesystem::filesystem_error);
}

TEST_F(LaunchControlTest, LaunchctlGetsTheCommandAndThePathOrLabel) {
    LaunchAgent agent("com.example.job", {"/bin/true"});
    try {
        control.load(agent);
        ADD_FAILURE() << "loaded without a file";
    } catch (const LaunchControlError& error) {
        EXPECT_EQ(error.code(), LaunchControlError::Code::urlNotSet);
        EXPECT_EQ(error.label(), "com.example.job");
        EXPECT_EQ(error.message(), "The URL is not set for agent com.example.job");
    }
    // The record's own forms use the shared instance, which has no file for it either.
    EXPECT_THROW(agent.unload(), LaunchControlError);
    EXPECT_THROW(agent.load(), LaunchControlError);

    control.start(agent);
    EXPECT_EQ(calls(1), Lines{"start|com.example.job"});
    agent.stop();
    EXPECT_EQ(calls(2).back(), "stop|com.example.job");
    control.write(agent);
    control.load(agent);
    EXPECT_EQ(calls(3).back(), "load|" + (folder / "com.example.job.plist").string());
    control.unload(agent);
    // The failed load and unload above never reached launchctl.
    EXPECT_EQ(calls(4), (Lines{"start|com.example.job", "stop|com.example.job", "load|" + agent.url->string(),
                               "unload|" + agent.url->string()}));
}

TEST_F(LaunchControlTest, StatusReadsTheFirstColumnOfTheExactLabelsLine) {
    const LaunchAgent agent("com.example.job");
    const std::string header = "PID\tStatus\tLabel\n";
    const std::vector<std::pair<std::string, AgentStatus>> rows = {
        {"123\t0\tcom.apple.other\n-\t0\tcom.example.job\n", AgentStatus::loaded()},
        {"4242\t0\tcom.example.job\n", AgentStatus::running(4242)},
        {"123\t0\tcom.apple.other\n", AgentStatus::unloaded()},
        // Labels that contain this one match grep as well: the exact label decides.
        {"-\t0\tcom.example.job.helper\n777\t0\tcom.example.job\n88\t0\txcom.example.job\n",
         AgentStatus::running(777)},
        {"1\t0\tcom.example.job.a\n2\t0\tcom.example.job.b\n", AgentStatus::unloaded()},
    };
    for (const auto& [listing, status] : rows) {
        writeFile(root() / "launchctl.list", header + listing);
        EXPECT_EQ(agent.status(), status) << listing;
    }
    EXPECT_EQ(calls(rows.size()), Lines(rows.size(), "list"));

    LaunchControl::Options noLaunchctl;
    noLaunchctl.launchctl = root() / "missing";
    EXPECT_EQ(LaunchControl(noLaunchctl).status(agent), AgentStatus::unloaded());
}

TEST(LaunchControlStatusTest, ListingOutputEdgeCases) {
    const std::vector<std::tuple<std::string, std::string, AgentStatus>> rows = {
        {"\n-\n\r\n", "", AgentStatus::loaded()},
        {"-12\n", "", AgentStatus::running(-12)},
        {"+12\n", "", AgentStatus::running(12)},
        {"\u202877\u0085", "", AgentStatus::running(77)}, // Unicode line ends count as line ends
        {"\n\n", "", AgentStatus::unloaded()},
        {"\xff\n", "12\t0\tjob\n", AgentStatus::unloaded()}, // not UTF-8
        // White space other than line ends stays, so " 12" is no number; the exact line decides.
        {" 12\n", " 12\t0\tother\n", AgentStatus::unloaded()},
        {"PID\n", "PID\tStatus\tjob\n", AgentStatus::loaded()},
        {"99999999999999999999\n", "", AgentStatus::unloaded()},
    };
    for (const auto& [cut, grep, status] : rows) {
        EXPECT_EQ(LaunchControl::statusFromListing(cut, grep, "job"), status) << cut;
    }
}

// Job files in the shapes installers write, by Python's plistlib (an independent writer) in XML and binary
// form; between them they hold every key of a job record. Each comes back as XML with the original's content
// and types (true is not 1) in the record's key order, less the keys the record does not know.
TEST_F(LaunchControlTest, JobFilesOfAnotherWriterComeBackWithTheSameContent) {
    PropertyListEncoder binary;
    binary.outputFormat = PropertyListEncoder::OutputFormat::binary;
    for (const std::string name : {"homebrew.mxcl.postgresql.plist", "org.example.sync.plist"}) {
        const auto original = std::filesystem::path(VARNOTH_GOLDEN_DIR) / "launchd/jobs" / name;
        LaunchAgent agent = control.read(original);
        EXPECT_EQ(agent.url, original);
        control.writeCalled(agent, name);
        EXPECT_EQ(control.read(*agent.url), agent);
        expectGolden("launchd/rewritten/" + name, readWholeFile(*agent.url));
        LaunchAgent fromBinary = PropertyListDecoder().decode<LaunchAgent>(binary.encode(agent));
        fromBinary.url = agent.url;
        EXPECT_EQ(fromBinary, agent);
    }
}

} // namespace
} // namespace varnoth::test
