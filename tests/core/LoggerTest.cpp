#include "core/Logger.h"
#include "tests/support/AgentTest.h"

#include <regex>

namespace varnoth::test {
namespace {

class LoggerTest : public AgentTest {};

TEST_F(LoggerTest, EveryLineStartsWithATimestampAndTwoBlanks) {
    Logger::log("Starting app engine");
    Logger::log("\nfirst line of an entry");
    const std::string text = logText();
    const std::regex line(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}  Starting app engine\n)"
                          R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}  \nfirst line of an entry\n)");
    EXPECT_TRUE(std::regex_match(text, line)) << text;
}

TEST_F(LoggerTest, CaptureHoldsExactlyTheLinesWrittenMeanwhile) {
    Logger::log("before");
    const std::size_t offset = logText().size();
    Logger::captureEnabled = true;
    Logger::log("one");
    Logger::log("two");
    Logger::captureEnabled = false;
    Logger::log("after");
    const std::string text = logText();
    EXPECT_EQ(Logger::capturedLog, text.substr(offset, Logger::capturedLog.size()));
    EXPECT_EQ(Logger::capturedLog.find("before"), std::string::npos);
    EXPECT_EQ(Logger::capturedLog.find("after"), std::string::npos);
}

TEST_F(LoggerTest, CreatesAMissingFolderAndRecreatesADeletedFile) {
    Logger::setLogFilePath(root() / "new/folder/agent.log");
    Logger::log("first");
    ASSERT_TRUE(std::filesystem::exists(root() / "new/folder/agent.log"));
    std::filesystem::remove(root() / "new/folder/agent.log");
    Logger::log("second");
    EXPECT_EQ(logLines(), std::vector<std::string>{"second"});
}

// An unwritable log folder: EnvironmentFaultTest.LogFolderUnwritable, through a whole run.

} // namespace
} // namespace varnoth::test
