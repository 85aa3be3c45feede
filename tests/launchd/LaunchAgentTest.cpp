#include "launchd/LaunchAgent.h"
#include "tests/launchd/PlistTestSupport.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

using Kind = PropertyListError::Kind;
using Words = std::vector<std::string>;

const Words allKeys = {"Label",
                       "Disabled",
                       "EnableGlobbing",
                       "Program",
                       "ProgramArguments",
                       "WorkingDirectory",
                       "StandardInPath",
                       "StandardOutPath",
                       "StandardErrorPath",
                       "EnvironmentVariables",
                       "RunAtLoad",
                       "StartInterval",
                       "StartCalendarInterval",
                       "StartOnMount",
                       "OnDemand",
                       "KeepAlive",
                       "WatchPaths",
                       "QueueDirectories",
                       "Umask",
                       "SessionCreate",
                       "GroupName",
                       "UserName",
                       "InitGroups",
                       "RootDirectory",
                       "LaunchOnlyOnce",
                       "LimitLoadToSessionType",
                       "LimitLoadToHosts",
                       "LimitLoadFromHosts",
                       "AbandonProcessGroup",
                       "EnablePressuredExit",
                       "EnableTransactions",
                       "ExitTimeOut",
                       "inetdCompatibility",
                       "HardResourceLimits",
                       "SoftResourceLimits",
                       "TimeOut",
                       "ThrottleInterval",
                       "MachServices",
                       "Debug",
                       "WaitForDebugger",
                       "LegacyTimers",
                       "LowPriorityIO",
                       "LowPriorityBackgroundIO",
                       "Nice",
                       "ProcessType"};

// Every setting present with a value that differs from its neighbours'. Program and ProgramArguments
// can only stand together when read from a file, so this record comes from decoding.
LaunchAgent everySetting() {
    LaunchAgent agent = decodedFrom<LaunchAgent>("<key>Label</key><string>com.example.every</string>"
                                                 "<key>Program</key><string>/usr/local/bin/every</string>"
                                                 "<key>ProgramArguments</key><array><string>every</string>"
                                                 "<string>--flag</string></array>");
    agent.disabled = false;
    agent.enableGlobbing = true;
    agent.workingDirectory = "/var/empty";
    agent.standardInPath = "/dev/null";
    agent.standardOutPath = "/tmp/every.out";
    agent.standardErrorPath = "/tmp/every.err";
    agent.environmentVariables =
        std::map<std::string, std::string>{{"PATH", "/usr/bin:/bin"}, {"LANG", "de_DE"}};
    agent.runAtLoad = true;
    agent.startInterval = 3600;
    agent.startCalendarInterval = StartCalendarInterval(StartMonth::may, StartWeekday::friday, 13, 4, 5);
    agent.startOnMount = false;
    agent.onDemand = true;
    agent.keepAlive = false;
    agent.watchPaths = Words{"/etc/hosts"};
    agent.queueDirectories = Words{"/var/spool/every", "/var/spool/other"};
    agent.umask = 18;
    agent.sessionCreate = true;
    agent.groupName = "staff";
    agent.userName = "nobody";
    agent.initGroups = false;
    agent.rootDirectory = "/";
    agent.launchOnlyOnce = true;
    agent.limitLoadToSessionType = Words{"Aqua", "LoginWindow"};
    agent.limitLoadToHosts = Words{"build1"};
    agent.limitLoadFromHosts = Words{};
    agent.abandonProcessGroup = true;
    agent.enablePressuredExit = false;
    agent.enableTransactions = true;
    agent.exitTimeOut = 30;
    agent.inetdCompatibility = inetdCompatibility(true);
    agent.hardResourceLimits = ResourceLimits(std::nullopt, 0);
    agent.softResourceLimits =
        ResourceLimits(10, std::nullopt, std::nullopt, std::nullopt, std::nullopt, 256);
    agent.timeOut = 7;
    agent.throttleInterval = 11;
    agent.machServices =
        std::map<std::string, MachService>{{"com.example.every.xpc", MachService(true, false)},
                                           {"com.example.every.other", MachService(false, true)}};
    agent.debug = false;
    agent.waitForDebugger = false;
    agent.legacyTimers = true;
    agent.lowPriorityIO = true;
    agent.lowPriorityBackgroundIO = false;
    agent.setNice(-5);
    agent.processType = ProcessType::adaptive;
    return agent;
}

Kind agentDecodingFailure(const std::string& body, const std::string& expectedFirstPathKey) {
    try {
        decodedFrom<LaunchAgent>("<key>Label</key><string>x</string>" + body);
    } catch (const PropertyListError& error) {
        EXPECT_FALSE(error.codingPath().empty()) << body;
        if (!error.codingPath().empty()) {
            EXPECT_EQ(error.codingPath().front(), expectedFirstPathKey) << error.what();
        }
        return error.kind();
    }
    ADD_FAILURE() << "decoded without error: " << body;
    return Kind::invalidValue;
}

TEST(LaunchAgentTest, ConstructionSplitsProgramFromArguments) {
    const LaunchAgent one("job", {"/bin/tool"});
    EXPECT_EQ(one.program(), "/bin/tool");
    EXPECT_EQ(one.programArguments(), std::nullopt);
    EXPECT_EQ(rootKeys(encodedXml(one)), (Words{"Label", "Program"}));

    const LaunchAgent two("job", {"/bin/tool", "-v"});
    EXPECT_EQ(two.program(), std::nullopt);
    EXPECT_EQ(two.programArguments(), (Words{"/bin/tool", "-v"}));

    const LaunchAgent none("job", {});
    EXPECT_EQ(none.program(), std::nullopt);
    EXPECT_EQ(none.programArguments(), Words{});
    const std::string xml = encodedXml(none);
    EXPECT_EQ(rootKeys(xml), (Words{"Label", "ProgramArguments"}));
    EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(xml).programArguments(), Words{});

    const LaunchAgent bare("job");
    EXPECT_EQ(rootKeys(encodedXml(bare)), Words{"Label"});
}

TEST(LaunchAgentTest, AssignmentRulesKeepProgramAndNiceConsistent) {
    LaunchAgent agent("job");
    agent.setProgramArguments(Words{"/bin/only"});
    EXPECT_EQ(agent.program(), "/bin/only");
    EXPECT_EQ(agent.programArguments(), std::nullopt);

    agent.setProgramArguments(Words{"/bin/a", "b", "c"});
    EXPECT_EQ(agent.program(), std::nullopt);
    agent.setProgram("/bin/p");
    EXPECT_EQ(agent.programArguments(), std::nullopt);
    EXPECT_EQ(agent.program(), "/bin/p");

    agent.setProgramArguments(std::nullopt); // absent changes nothing else
    EXPECT_EQ(agent.program(), "/bin/p");
    agent.setProgramArguments(Words{}); // an empty list may stand alone
    EXPECT_EQ(agent.program(), std::nullopt);
    EXPECT_EQ(agent.programArguments(), Words{});
    agent.setProgram(std::nullopt);
    EXPECT_EQ(agent.programArguments(), Words{});

    const std::vector<std::pair<std::int64_t, std::int64_t>> nice = {
        {25, 20}, {-100, -20}, {20, 20}, {-20, -20}, {21, 20}, {-21, -20}, {0, 0}};
    for (const auto& [given, stored] : nice) {
        agent.setNice(given);
        EXPECT_EQ(agent.nice(), stored) << given;
    }
    agent.setNice(std::nullopt);
    EXPECT_EQ(agent.nice(), std::nullopt);
}

TEST(LaunchAgentTest, EverySettingRoundTripsInTableOrder) {
    const LaunchAgent agent = everySetting();
    const std::string xml = encodedXml(agent);
    EXPECT_EQ(rootKeys(xml), allKeys);
    EXPECT_EQ(xml.find("url"), std::string::npos);
    EXPECT_NE(xml.find("<key>Umask</key>\n\t<integer>18</integer>"), std::string::npos);
    EXPECT_NE(xml.find("<key>Nice</key>\n\t<integer>-5</integer>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<key>ProcessType</key>\n\t<string>Adaptive</string>"), std::string::npos);

    const LaunchAgent decoded = PropertyListDecoder().decode<LaunchAgent>(xml);
    EXPECT_EQ(decoded, agent);
    EXPECT_EQ(encodedXml(decoded), xml);

    PropertyListEncoder binary;
    binary.outputFormat = PropertyListEncoder::OutputFormat::binary;
    const std::string bytes = binary.encode(agent);
    EXPECT_EQ(bytes.rfind("bplist00", 0), 0U);
    EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(bytes), agent);
}

TEST(LaunchAgentTest, DecodingStoresValuesWithoutAssignmentRules) {
    const auto agent =
        decodedFrom<LaunchAgent>("<key>Label</key><string>both</string>"
                                 "<key>Program</key><string>/bin/p</string>"
                                 "<key>ProgramArguments</key><array><string>one</string></array>"
                                 "<key>Nice</key><integer>99</integer>"
                                 "<key>StartCalendarInterval</key><dict><key>Minute</key>"
                                 "<integer>75</integer></dict>");
    EXPECT_EQ(agent.program(), "/bin/p");
    EXPECT_EQ(agent.programArguments(), Words{"one"});
    EXPECT_EQ(agent.nice(), 99);
    EXPECT_EQ(agent.startCalendarInterval->minute(), 75);
    EXPECT_EQ(agent.url, std::nullopt);

    const auto negative =
        decodedFrom<LaunchAgent>("<key>Label</key><string>n</string>"
                                 "<key>Nice</key><integer>-7</integer>"
                                 "<key>ExitTimeOut</key><integer>-9223372036854775808</integer>");
    EXPECT_EQ(negative.nice(), -7);
    EXPECT_EQ(negative.exitTimeOut, std::numeric_limits<std::int64_t>::min());
}

TEST(LaunchAgentTest, LabelIsRequiredAndMustBeText) {
    try {
        decodedFrom<LaunchAgent>("<key>Program</key><string>/bin/p</string>");
        ADD_FAILURE() << "decoded without a label";
    } catch (const PropertyListError& error) {
        EXPECT_EQ(error.kind(), Kind::keyNotFound);
        EXPECT_EQ(error.codingPath(), Words{"Label"});
    }
    EXPECT_THROW(decodedFrom<LaunchAgent>("<key>Label</key><integer>1</integer>"), PropertyListError);
    EXPECT_THROW(PropertyListDecoder().decode<LaunchAgent>("<plist><array/></plist>"), PropertyListError);
    EXPECT_THROW(PropertyListDecoder().decode<LaunchAgent>("not a property list"), PropertyListError);
    EXPECT_THROW(PropertyListDecoder().decode<LaunchAgent>(""), PropertyListError);
}

TEST(LaunchAgentTest, AnyKnownKeyOfAnotherTypeFailsTheWholeRecord) {
    EXPECT_EQ(agentDecodingFailure("<key>KeepAlive</key><dict><key>SuccessfulExit</key><false/></dict>",
                                   "KeepAlive"),
              Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>Umask</key><string>022</string>", "Umask"), Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>StartCalendarInterval</key><array><dict/></array>",
                                   "StartCalendarInterval"),
              Kind::typeMismatch);
    EXPECT_EQ(
        agentDecodingFailure("<key>StartCalendarInterval</key><dict><key>Month</key><integer>13</integer>"
                             "</dict>",
                             "StartCalendarInterval"),
        Kind::dataCorrupted);
    EXPECT_EQ(
        agentDecodingFailure("<key>StartCalendarInterval</key><dict><key>Weekday</key><integer>0</integer>"
                             "</dict>",
                             "StartCalendarInterval"),
        Kind::dataCorrupted);
    EXPECT_EQ(
        agentDecodingFailure("<key>MachServices</key><dict><key>com.x</key><dict><key>HideUntilCheckIn</key>"
                             "<true/></dict></dict>",
                             "MachServices"),
        Kind::keyNotFound);
    EXPECT_EQ(
        agentDecodingFailure("<key>MachServices</key><dict><key>com.x</key><true/></dict>", "MachServices"),
        Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>ProcessType</key><string>background</string>", "ProcessType"),
              Kind::dataCorrupted);
    EXPECT_EQ(agentDecodingFailure("<key>LimitLoadToSessionType</key><string>Aqua</string>",
                                   "LimitLoadToSessionType"),
              Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure(
                  "<key>ProgramArguments</key><array><string>a</string><integer>1</integer></array>",
                  "ProgramArguments"),
              Kind::typeMismatch);
    EXPECT_EQ(
        agentDecodingFailure("<key>EnvironmentVariables</key><dict><key>N</key><integer>1</integer></dict>",
                             "EnvironmentVariables"),
        Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>RunAtLoad</key><integer>1</integer>", "RunAtLoad"),
              Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>Nice</key><real>1.0</real>", "Nice"), Kind::typeMismatch);
    EXPECT_EQ(agentDecodingFailure("<key>inetdCompatibility</key><dict/>", "inetdCompatibility"),
              Kind::keyNotFound);
    EXPECT_EQ(
        agentDecodingFailure("<key>HardResourceLimits</key><dict><key>CPU</key><string>1</string></dict>",
                             "HardResourceLimits"),
        Kind::typeMismatch);
}

TEST(LaunchAgentTest, UnknownKeysAreIgnoredAndGoneWhenWrittenAgain) {
    const auto agent =
        decodedFrom<LaunchAgent>("<key>Label</key><string>job</string>"
                                 "<key>AssociatedBundleIdentifiers</key><array><string>a</string></array>"
                                 "<key>keepalive</key><dict/>"
                                 "<key>Umask</key><integer>18</integer>");
    EXPECT_EQ(agent.umask, 18);
    EXPECT_EQ(rootKeys(encodedXml(agent)), (Words{"Label", "Umask"}));
}

TEST(LaunchAgentTest, TextThatAPropertyListCannotCarryFailsTheEncoding) {
    LaunchAgent agent("job");
    agent.workingDirectory = std::string("/a\0b", 4);
    EXPECT_THROW(encodedXml(agent), PropertyListError);
    agent.workingDirectory = "\xff\xfe";
    EXPECT_THROW(encodedXml(agent), PropertyListError);
    agent.workingDirectory = "Grüße & <Tags>";
    const std::string xml = encodedXml(agent);
    EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(xml).workingDirectory, "Grüße & <Tags>");
}

} // namespace
} // namespace varnoth::test
