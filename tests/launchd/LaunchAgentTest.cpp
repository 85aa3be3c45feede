#include "launchd/LaunchAgent.h"
#include "tests/launchd/PlistTestSupport.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

using Kind = PropertyListError::Kind;
using namespace std::string_literals;
using Words = std::vector<std::string>;

TEST(LaunchAgentTest, OnlyKnownKeysThatArePresentAreWritten) {
    EXPECT_EQ(rootKeys(encodedXml(LaunchAgent("job"))), Words{"Label"});
    const auto agent =
        decodedFrom<LaunchAgent>("<key>Label</key><string>job</string><key>keepalive</key><dict/>"
                                 "<key>AssociatedBundleIdentifiers</key><array/>"
                                 "<key>Umask</key><integer>18</integer>");
    EXPECT_EQ(rootKeys(encodedXml(agent)), (Words{"Label", "Umask"}));
}

TEST(LaunchAgentTest, AssignmentKeepsProgramAndNiceConsistentButDecodingDoesNot) {
    const auto expectProgram = [](const LaunchAgent& agent, std::optional<std::string> program,
                                  std::optional<Words> arguments) {
        EXPECT_EQ(agent.program(), program);
        EXPECT_EQ(agent.programArguments(), arguments);
    };
    expectProgram(LaunchAgent("job", {"/bin/tool"}), "/bin/tool", std::nullopt);
    expectProgram(LaunchAgent("job", {"/bin/tool", "-v"}), std::nullopt, Words{"/bin/tool", "-v"});
    const LaunchAgent none("job", {});
    expectProgram(none, std::nullopt, Words{});
    EXPECT_EQ(rootKeys(encodedXml(none)), (Words{"Label", "ProgramArguments"}));
    EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(encodedXml(none)).programArguments(), Words{});

    LaunchAgent agent("job");
    agent.setProgramArguments(Words{"/bin/only"});
    expectProgram(agent, "/bin/only", std::nullopt);
    agent.setProgramArguments(Words{"/bin/a", "b"});
    expectProgram(agent, std::nullopt, Words{"/bin/a", "b"});
    agent.setProgram("/bin/p");
    expectProgram(agent, "/bin/p", std::nullopt);
    agent.setProgramArguments(std::nullopt); // absent changes nothing else
    expectProgram(agent, "/bin/p", std::nullopt);
    agent.setProgramArguments(Words{}); // an empty list may stand alone
    expectProgram(agent, std::nullopt, Words{});
    agent.setProgram(std::nullopt);
    expectProgram(agent, std::nullopt, Words{});

    for (const auto& [given, stored] : std::vector<std::pair<std::int64_t, std::int64_t>>{
             {25, 20}, {-100, -20}, {20, 20}, {-21, -20}, {0, 0}}) {
        agent.setNice(given);
        EXPECT_EQ(agent.nice(), stored) << given;
    }

    const auto decoded =
        decodedFrom<LaunchAgent>("<key>Label</key><string>both</string>"
                                 "<key>Program</key><string>/bin/p</string>"
                                 "<key>ProgramArguments</key><array><string>1</string></array>"
                                 "<key>Nice</key><integer>99</integer>"
                                 "<key>StartInterval</key><integer>9223372036854775807</integer>"
                                 "<key>ExitTimeOut</key><integer>-9223372036854775808</integer>"
                                 "<key>StartCalendarInterval</key><dict><key>Minute</key>"
                                 "<integer>75</integer></dict>");
    expectProgram(decoded, "/bin/p", Words{"1"});
    EXPECT_EQ(decoded.nice(), 99);
    EXPECT_EQ(decoded.startInterval, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(decoded.exitTimeOut, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(decoded.startCalendarInterval->minute(), 75);
}

// The kind of error and the first key of its path, for a record that must not decode.
std::pair<Kind, std::string> decodingFailure(const std::string& body) {
    try {
        decodedFrom<LaunchAgent>(body);
    } catch (const PropertyListError& error) {
        return {error.kind(), error.codingPath().empty() ? "" : error.codingPath().front()};
    }
    return {Kind::invalidValue, "decoded without error"};
}

TEST(LaunchAgentTest, AMissingLabelOrAKnownKeyOfAnotherTypeFailsTheWholeRecord) {
    EXPECT_EQ(decodingFailure("<key>Program</key><string>/bin/p</string>"),
              std::pair(Kind::keyNotFound, "Label"s));
    const std::vector<std::tuple<std::string, std::string, Kind>> rows = {
        {"Label", "<integer>1</integer>", Kind::typeMismatch},
        {"KeepAlive", "<dict><key>SuccessfulExit</key><false/></dict>", Kind::typeMismatch},
        {"Umask", "<string>022</string>", Kind::typeMismatch},
        {"StartCalendarInterval", "<array><dict/></array>", Kind::typeMismatch},
        {"StartCalendarInterval", "<dict><key>Month</key><integer>13</integer></dict>", Kind::dataCorrupted},
        {"MachServices", "<dict><key>x</key><true/></dict>", Kind::typeMismatch},
        {"ProcessType", "<string>background</string>", Kind::dataCorrupted},
        {"LimitLoadToSessionType", "<string>Aqua</string>", Kind::typeMismatch},
        {"ProgramArguments", "<array><string>a</string><integer>1</integer></array>", Kind::typeMismatch},
        {"EnvironmentVariables", "<dict><key>N</key><integer>1</integer></dict>", Kind::typeMismatch},
        {"RunAtLoad", "<integer>1</integer>", Kind::typeMismatch},
        {"Nice", "<real>1.0</real>", Kind::typeMismatch},
        {"Nice", "<integer>9223372036854775808</integer>", Kind::typeMismatch}, // beyond 64 signed bits
        {"Umask", "<integer>99999999999999999999</integer>", Kind::typeMismatch},
        {"ExitTimeOut", "<integer> -9223372036854775809</integer>", Kind::typeMismatch},
    };
    for (const auto& [key, value, kind] : rows) {
        const std::string label = key == "Label" ? "" : "<key>Label</key><string>x</string>";
        EXPECT_EQ(decodingFailure(label + "<key>" + key + "</key>" + value), std::pair(kind, key)) << value;
    }
    for (const std::string bytes : {"<plist><array/></plist>", "not a property list", ""}) {
        EXPECT_THROW(PropertyListDecoder().decode<LaunchAgent>(bytes), PropertyListError) << bytes;
    }
}

TEST(LaunchAgentTest, TextThatAPropertyListCannotCarryFailsTheEncoding) {
    LaunchAgent agent("job");
    for (const std::string& bad : {std::string("/a\0b", 4), std::string("\xff\xfe")}) {
        agent.workingDirectory = bad;
        EXPECT_THROW(encodedXml(agent), PropertyListError);
    }
    // Dictionary keys with entities, one right after the other.
    agent.workingDirectory = "/w";
    agent.environmentVariables = std::map<std::string, std::string>{{"a&<b", "v"}};
    EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(encodedXml(agent)).environmentVariables,
              agent.environmentVariables);
}

} // namespace
} // namespace varnoth::test
