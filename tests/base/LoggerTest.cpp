#include "base/Logger.h"
#include "base/TextValues.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace varnoth::test {
namespace {

class LoggerTest : public AgentTest {};

TEST_F(LoggerTest, EveryLineStartsWithATimestampAndTwoBlanksAndACaptureHoldsThoseWrittenMeanwhile) {
    Logger::log("Starting app engine");
    // An entry of the agent's own may span lines; controls, bytes that are not UTF-8 and frame markers
    // (which would cut the deployment log's request short) never pass.
    Logger::log("\nfirst line of an entry \x1B[2J\u0085\xFF ##!! DATA BLOCK END !!##");
    const std::string text = logText();
    const std::regex line(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}  Starting app engine\n)"
                          R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}  \nfirst line of an entry )"
                          R"(\\x1B\[2J\\u0085\\xFF \\x23#!! DATA BLOCK END !!##\n)");
    EXPECT_TRUE(std::regex_match(text, line)) << text;
    // A capture holds exactly the lines written meanwhile.
    const std::size_t offset = text.size();
    Logger::captureEnabled = true;
    Logger::log("one");
    Logger::log("two");
    Logger::captureEnabled = false;
    Logger::log("after");
    const std::string all = logText(); // the capture ends before the last line
    EXPECT_EQ(Logger::capturedLog, all.substr(offset, all.rfind('\n', all.size() - 2) + 1 - offset));
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

TEST_F(LoggerTest, OutsideTextIsEscapedAndCut) {
    const std::string cut = "\u2026 (20000 bytes in all)";
    for (const auto& [text, quoted] : std::vector<std::pair<std::string, std::string>>{
             {"tab\tstays", "tab\tstays"},
             {std::string("nul\0esc\x1B cr\r lf\n", 16), "nul\\x00esc\\x1B cr\\x0D lf\\n"},
             {"del\x7F c1\u0085 ls\u2028 ps\u2029 \u00E9 bad\xFF\xC3( surrogate\xED\xA0\x80",
              "del\\x7F c1\\u0085 ls\\u2028 ps\\u2029 \u00E9 bad\\xFF\\xC3( surrogate\\xED\\xA0\\x80"},
             {std::string(20000, 'a'), std::string(Logger::quoteLimit, 'a') + cut},
             {"\u00E9" + std::string(19998, 'a'), "\u00E9" + std::string(Logger::quoteLimit - 2, 'a') + cut},
             {std::string(Logger::quoteLimit - 1, 'a') + "\u00E9" +
                  std::string(20000 - Logger::quoteLimit - 1, 'a'),
              std::string(Logger::quoteLimit - 1, 'a') + cut}}) {
        EXPECT_TRUE(Logger::quoted(text) == quoted) << text.substr(0, 40);
    }
}

TEST_F(LoggerTest, TheFileIsTheUsersOwnNeverALinkAndRotatedPastTenMegabytes) {
    Logger::log("first");
    struct stat status {};
    ASSERT_EQ(::stat(Logger::logFilePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    // A file at the size takes one more line; a file past it is moved aside by the next line, also in the
    // process that wrote it (a tray agent runs for weeks).
    std::filesystem::resize_file(Logger::logFilePath(), Logger::rotateBytes);
    Logger::log("past the size");
    EXPECT_GT(std::filesystem::file_size(Logger::logFilePath()), Logger::rotateBytes);
    Logger::log("next line");
    EXPECT_EQ(logLines(), std::vector<std::string>{"next line"});
    EXPECT_GT(std::filesystem::file_size(Logger::logFilePath().string() + ".1"), Logger::rotateBytes);

    // A link at the path is not followed: its target stays untouched.
    writeFile(root() / "target", "kept");
    const auto linked = root() / "linked.log";
    std::filesystem::create_symlink(root() / "target", linked);
    Logger::setLogFilePath(linked);
    testing::internal::CaptureStdout();
    Logger::log("through the link");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "logging failed\n");
    EXPECT_EQ(std::filesystem::file_size(root() / "target"), 4u);
}

// Integers are whole decimals with an optional sign; floats ignore the locale, reject partial text, and out
// of range are infinite or zero as the platform's parser has it; the shortest text of a float has no
// exponent.
TEST(TextValuesTest, ParsingTrimmingAndUtf8Transcript) {
    expectTranscript("base/text-values", [](const std::string& word, const std::string& rest) {
        const std::string text = unescaped(rest);
        std::ostringstream out;
        if (word == "integer") {
            const auto value = text::parseInteger<std::int32_t>(text);
            value ? out << *value : out << "none";
        } else if (word == "float") {
            const auto value = text::parseFloat(text);
            value ? out << *value << " shown " << text::shortestFloat(*value) : out << "none";
        } else if (word == "trimmed") {
            out << '[' << text::trimmed(text) << ']';
        } else {
            out << (text::isValidUtf8(text) ? "valid" : "invalid");
        }
        return out.str();
    });
    EXPECT_EQ(text::replaceAll("a<b<c", "<", "&lt;"), "a&lt;b&lt;c");
}

} // namespace
} // namespace varnoth::test
