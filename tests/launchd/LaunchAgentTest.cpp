#include "launchd/LaunchAgent.h"
#include "launchd/FilePermissions.h"
#include "launchd/MachService.h"
#include "launchd/PermissionBits.h"
#include "launchd/ProcessType.h"
#include "launchd/ResourceLimits.h"
#include "launchd/StartCalendarInterval.h"
#include "launchd/inetdCompatibility.h"
#include "tests/launchd/PlistTestSupport.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>

namespace varnoth::test {
namespace {

using Words = std::vector<std::string>;

// The record decoded from a dictionary body and encoded again on one line, or the error that stopped it.
template <typename T> std::string reencoded(const std::string& body) {
    try {
        std::string xml = encodedXml(decodedFrom<T>(body));
        std::erase_if(xml, [](char c) { return c == '\n' || c == '\t'; });
        return xml.substr(xml.find("<dict"), xml.rfind("</plist>") - xml.find("<dict"));
    } catch (const PropertyListError& error) {
        return error.what();
    }
}

TEST(LaunchAgentTest, DecodingAndEncodingTranscript) {
    const std::map<std::string, std::string (*)(const std::string&)> records = {
        {"LaunchAgent", reencoded<LaunchAgent>},
        {"StartCalendarInterval", reencoded<StartCalendarInterval>},
        {"MachService", reencoded<MachService>},
        {"inetdCompatibility", reencoded<inetdCompatibility>},
        {"ResourceLimits", reencoded<ResourceLimits>}};
    expectTranscript("launchd/decoding",
                     [&](const auto& type, const auto& body) { return records.at(type)(body); });
    for (const std::string bytes : {"<plist><array/></plist>", "not a property list", ""}) {
        EXPECT_THROW(PropertyListDecoder().decode<LaunchAgent>(bytes), PropertyListError) << bytes;
    }
    LaunchAgent agent("job");
    EXPECT_EQ(rootKeys(encodedXml(agent)), Words{"Label"});
    for (const std::string& bad : {std::string("/a\0b", 4), std::string("\xff\xfe")}) {
        agent.workingDirectory = bad;
        EXPECT_THROW(encodedXml(agent), PropertyListError);
    }
    // The transcript shows this text is the encoding of the decoded record.
    EXPECT_EQ(
        decodedFrom<StartCalendarInterval>("<key>Month</key><integer>3</integer><key>Weekday</key><integer>7"
                                           "</integer><key>Day</key><integer>2</integer><key>Hour</key>"
                                           "<integer>3</integer><key>Minute</key><integer>4</integer>"),
        StartCalendarInterval(StartMonth::march, StartWeekday::sunday, 2, 3, 4));
    for (const auto& [type, raw] : {std::pair(ProcessType::standard, "Standard"),
                                    {ProcessType::background, "Background"},
                                    {ProcessType::adaptive, "Adaptive"},
                                    {ProcessType::interactive, "Interactive"}}) {
        EXPECT_EQ(rawValue(type), raw);
        EXPECT_EQ(processTypeFromRawValue(raw), type);
    }
}

TEST(LaunchAgentTest, AssignmentKeepsProgramAndNiceConsistent) {
    const auto expectProgram = [](const LaunchAgent& agent, std::optional<std::string> program,
                                  std::optional<Words> arguments) {
        EXPECT_EQ(agent.program(), program);
        EXPECT_EQ(agent.programArguments(), arguments);
    };
    expectProgram(LaunchAgent("job", {"/bin/tool"}), "/bin/tool", std::nullopt);
    expectProgram(LaunchAgent("job", {"/bin/tool", "-v"}), std::nullopt, Words{"/bin/tool", "-v"});
    expectProgram(LaunchAgent("job", {}), std::nullopt, Words{});

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
}

TEST(StartCalendarIntervalTest, SettersClampAndConstructionKeepsValues) {
    StartCalendarInterval interval;
    interval.setDay(0);
    interval.setHour(24);
    interval.setMinute(60);
    EXPECT_EQ(interval, StartCalendarInterval(std::nullopt, std::nullopt, 1, 23, 59));
    interval.setDay(40);
    interval.setHour(-1);
    interval.setMinute(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(interval, StartCalendarInterval(std::nullopt, std::nullopt, 31, 0, 0));
    interval.setDay(31);
    interval.setMinute(std::nullopt);
    EXPECT_EQ(interval, StartCalendarInterval(std::nullopt, std::nullopt, 31, 0, std::nullopt));
    const StartCalendarInterval constructed(std::nullopt, std::nullopt, 40, 99, -3);
    EXPECT_EQ(constructed.day(), 40);
    EXPECT_EQ(constructed.minute(), -3);
}

TEST(PermissionBitsTest, SetOperationsReportWhatChanged) {
    PermissionBits bits{PermissionBits::read, PermissionBits::execute};
    EXPECT_EQ(bits.insert(PermissionBits::read), std::make_pair(false, PermissionBits::read));
    EXPECT_EQ(bits.insert(PermissionBits::write), std::make_pair(true, PermissionBits::write));
    EXPECT_EQ(bits.remove(PermissionBits::execute), PermissionBits::execute);
    EXPECT_EQ(bits.remove(PermissionBits::execute), std::nullopt);
    EXPECT_EQ(bits.update(PermissionBits{PermissionBits::read, PermissionBits::execute}),
              PermissionBits::read);
    EXPECT_EQ(bits.update(PermissionBits(8)), std::nullopt);
    EXPECT_EQ(bits.rawValue(), 15);
}

TEST(FilePermissionsTest, NumbersAndTextsTranscript) {
    expectTranscript("launchd/permissions", [](const std::string& word, const std::string& rest) {
        std::istringstream numbers(rest);
        std::int64_t a = 0, b = 0, c = 0;
        numbers >> a >> b >> c;
        const auto texts = [](const FilePermissions& p) { return p.octal() + " " + p.symbolic(); };
        if (word == "bits") {
            const FilePermissions p{PermissionBits(a), PermissionBits(b), PermissionBits(c)};
            return std::to_string(p.value()) + " " + texts(p) + " umask " + p.umaskOctal() + " " +
                   std::to_string(p.umaskValue()) + ", " + p.description();
        }
        if (word == "fromValue" || word == "fromUmask") {
            return texts(word == "fromValue" ? FilePermissions::fromValue(a) : FilePermissions::fromUmask(a));
        }
        return word == "octalText" ? FilePermissions::octalText(a) : PermissionBits(a).description();
    });
}

} // namespace
} // namespace varnoth::test
