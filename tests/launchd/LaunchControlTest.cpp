#include "launchd/LaunchControl.h"
#include "tests/launchd/FakeLaunchctl.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"

#include <fstream>
#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

class LaunchControlTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        folder = root() / "home/Library/LaunchAgents";
        std::filesystem::create_directories(folder);
        fake.emplace(root() / "bin");
        LaunchControl::Options options;
        options.launchctl = fake->path();
        control.setOptions(options);
    }
    void TearDown() override {
        LaunchControl::shared().setOptions({});
        AgentTest::TearDown();
    }

    void writeJob(const std::string& name, const std::string& label) const {
        writeFile(folder / name, xmlPlist("<key>Label</key><string>" + label + "</string>"));
    }

    std::filesystem::path folder;
    std::optional<FakeLaunchctl> fake;
    LaunchControl control; // the LaunchAgents folder under the test's HOME
};

TEST_F(LaunchControlTest, WriteNamesTheFileAfterTheLabelOrTheGivenName) {
    EXPECT_EQ(control.launchAgentsURL(), folder);
    LaunchAgent agent("agent-job", {"/bin/true"});
    control.write(agent);
    EXPECT_EQ(agent.url, folder / "agent-job.plist");
    std::ifstream in(folder / "agent-job.plist");
    std::string firstLine;
    std::getline(in, firstLine);
    EXPECT_EQ(firstLine, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    const LaunchAgent back = control.read(folder / "agent-job.plist");
    EXPECT_EQ(back, agent);

    const std::vector<std::pair<std::string, std::string>> names = {{"job", "job.plist"},
                                                                    {"job.plist", "job.plist"},
                                                                    {"job.PLIST", "job.PLIST.plist"},
                                                                    {"a.b", "a.b.plist"}};
    for (const auto& [given, written] : names) {
        LaunchAgent named("named");
        control.writeCalled(named, given);
        EXPECT_EQ(named.url, folder / written) << given;
        EXPECT_TRUE(std::filesystem::exists(folder / written)) << given;
    }

    // A rewrite replaces the file; a failed write keeps the old location.
    agent.keepAlive = true;
    control.write(agent);
    EXPECT_EQ(control.read(folder / "agent-job.plist").keepAlive, true);
    EXPECT_THROW(control.writeTo(agent, root() / "missing/folder/job"), std::filesystem::filesystem_error);
    EXPECT_EQ(agent.url, folder / "agent-job.plist");
}

TEST_F(LaunchControlTest, ReadUsesTheNameAsGivenAndSetsTheLocation) {
    writeJob("job", "without-extension");
    writeJob("job.plist", "with-extension");
    const LaunchAgent agent = control.readCalled("job");
    EXPECT_EQ(agent.label, "without-extension");
    EXPECT_EQ(agent.url, folder / "job");

    EXPECT_THROW(control.readCalled("absent"), std::filesystem::filesystem_error);
    writeFile(folder / "junk", "junk");
    EXPECT_THROW(control.readCalled("junk"), PropertyListError);
    writeFile(folder / "nolabel.plist", xmlPlist("<key>Program</key><string>/bin/p</string>"));
    EXPECT_THROW(control.readCalled("nolabel.plist"), PropertyListError);
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
    writeJob("g.plist/inner.plist", "com.example.job"); // not descended into

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
    EXPECT_THROW(control.unload(agent), LaunchControlError);

    control.start(agent);
    EXPECT_EQ(fake->calls(1), (std::vector<std::string>{"start|com.example.job"}));
    control.stop(agent);
    EXPECT_EQ(fake->calls(2).back(), "stop|com.example.job");
    control.write(agent);
    control.load(agent);
    EXPECT_EQ(fake->calls(3).back(), "load|" + (folder / "com.example.job.plist").string());
    control.unload(agent);
    EXPECT_EQ(fake->calls(4).back(), "unload|" + (folder / "com.example.job.plist").string());
    // The failed load and unload above never reached launchctl.
    EXPECT_EQ(fake->calls().size(), 4U);
}

TEST_F(LaunchControlTest, StatusReadsTheFirstColumnOfTheMatchingLine) {
    const LaunchAgent agent("com.example.job");
    const std::string header = "PID\tStatus\tLabel\n";
    fake->setListing(header + "123\t0\tcom.apple.other\n-\t0\tcom.example.job\n");
    EXPECT_EQ(control.status(agent), AgentStatus::loaded());
    EXPECT_EQ(fake->calls(1), std::vector<std::string>{"list"});

    fake->setListing(header + "4242\t0\tcom.example.job\n");
    EXPECT_EQ(control.status(agent), AgentStatus::running(4242));
    EXPECT_EQ(control.status(agent).pid(), 4242);

    fake->setListing(header + "123\t0\tcom.apple.other\n");
    EXPECT_EQ(control.status(agent), AgentStatus::unloaded());

    // Labels that contain this one match grep as well: the exact label decides.
    fake->setListing(header +
                     "-\t0\tcom.example.job.helper\n777\t0\tcom.example.job\n88\t0\txcom.example.job\n");
    EXPECT_EQ(control.status(agent), AgentStatus::running(777));
    fake->setListing(header + "1\t0\tcom.example.job.a\n2\t0\tcom.example.job.b\n");
    EXPECT_EQ(control.status(agent), AgentStatus::unloaded());

    LaunchControl::Options noLaunchctl;
    noLaunchctl.launchctl = root() / "bin/missing";
    EXPECT_EQ(LaunchControl(noLaunchctl).status(agent), AgentStatus::unloaded());
}

TEST(LaunchControlStatusTest, ListingOutputEdgeCases) {
    const std::string label = "job";
    EXPECT_EQ(LaunchControl::statusFromListing("\n-\n\r\n", "", label), AgentStatus::loaded());
    EXPECT_EQ(LaunchControl::statusFromListing("-12\n", "", label), AgentStatus::running(-12));
    EXPECT_EQ(LaunchControl::statusFromListing("+12\n", "", label), AgentStatus::running(12));
    EXPECT_EQ(LaunchControl::statusFromListing("\xE2\x80\xA8"
                                               "77\xC2\x85",
                                               "", label),
              AgentStatus::running(77));
    EXPECT_EQ(LaunchControl::statusFromListing("", "", label), AgentStatus::unloaded());
    EXPECT_EQ(LaunchControl::statusFromListing("\n\n", "", label), AgentStatus::unloaded());
    EXPECT_EQ(LaunchControl::statusFromListing("\xff"
                                               "12\n",
                                               "12\t0\tjob\n", label),
              AgentStatus::unloaded());
    // White space other than line ends stays, so " 12" is no number; the exact line decides.
    EXPECT_EQ(LaunchControl::statusFromListing(" 12\n", " 12\t0\tother\n", label), AgentStatus::unloaded());
    EXPECT_EQ(LaunchControl::statusFromListing("PID\n", "PID\tStatus\tjob\n", label), AgentStatus::loaded());
    EXPECT_EQ(LaunchControl::statusFromListing("99999999999999999999\n", "", label), AgentStatus::unloaded());
    EXPECT_EQ(AgentStatus::running(5).description(), "running(5)");
    EXPECT_NE(AgentStatus::running(5), AgentStatus::running(6));
}

TEST_F(LaunchControlTest, RecordShortcutsUseTheSharedInstance) {
    LaunchControl::Options options;
    options.launchctl = fake->path();
    LaunchControl::shared().setOptions(options);

    LaunchAgent agent("com.example.shared");
    EXPECT_THROW(agent.load(), LaunchControlError);
    EXPECT_THROW(agent.unload(), LaunchControlError);
    fake->setListing("31\t0\tcom.example.shared\n");
    EXPECT_EQ(agent.status(), AgentStatus::running(31));
    agent.start();
    EXPECT_EQ(fake->calls(2).back(), "start|com.example.shared");
    LaunchControl::shared().write(agent);
    EXPECT_EQ(agent.url, folder / "com.example.shared.plist");
    agent.load();
    EXPECT_EQ(fake->calls(3).back(), "load|" + agent.url->string());
}

} // namespace
} // namespace varnoth::test
