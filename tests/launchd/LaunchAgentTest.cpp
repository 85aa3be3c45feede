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

TEST(PermissionBitsTest, DescriptionAndSetOperationsReportWhatChanged) {
    EXPECT_EQ(PermissionBits(5).description(), "r-x");
    EXPECT_EQ(PermissionBits(12).description(), "r--"); // only the three low bits show

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

TEST(FilePermissionsTest, NumbersAndTexts) {
    const struct {
        std::int64_t user, group, other;
        std::int64_t value;
        const char *octal, *symbolic, *umaskOctal;
    } rows[] = {
        {6, 4, 4, 420, "644", "-rw-r--r--", "133"},
        {7, 5, 5, 493, "755", "-rwxr-xr-x", "022"},
        {0, 0, 7, 7, "007", "-------rwx", "770"},
        // Raw values beyond one digit are combined arithmetically; the symbolic text shows the low bits.
        {8, 0, 9, 521, "011", "---------x", nullptr},
    };
    for (const auto& row : rows) {
        const FilePermissions permissions(PermissionBits(row.user), PermissionBits(row.group),
                                          PermissionBits(row.other));
        SCOPED_TRACE(row.octal);
        EXPECT_EQ(permissions.value(), row.value);
        EXPECT_EQ(permissions.octal(), row.octal);
        EXPECT_EQ(permissions.symbolic(), row.symbolic);
        if (row.umaskOctal != nullptr) {
            EXPECT_EQ(permissions.umaskOctal(), row.umaskOctal);
            EXPECT_EQ(permissions.umaskValue(), 511 - row.value);
        }
    }
    EXPECT_EQ(FilePermissions(PermissionBits(6), PermissionBits(4), PermissionBits(4)).description(),
              "Permissions u+rw-, g+r--, o+r--");

    // 1755 loses the sticky bit; -1 keeps its low nine bits.
    for (const auto& [number, octal] : std::vector<std::pair<std::int64_t, std::string>>{
             {493, "755"}, {1005, "755"}, {0, "000"}, {-1, "777"}}) {
        EXPECT_EQ(FilePermissions::fromValue(number).octal(), octal) << number;
    }
    EXPECT_EQ(FilePermissions::fromUmask(18).symbolic(), "-rwxr-xr-x");
    EXPECT_EQ(FilePermissions::fromUmask(0).octal(), "777");
    for (const auto& [number, text] : std::vector<std::pair<std::int64_t, std::string>>{
             {0, "000"}, {8, "010"}, {511, "777"}, {512, "000"}, {-1, "0-1"}}) {
        EXPECT_EQ(FilePermissions::octalText(number), text) << number;
    }

    FilePermissions huge(PermissionBits(std::numeric_limits<std::int64_t>::max()), PermissionBits(0),
                         PermissionBits(0));
    (void)huge.value(); // wraps without undefined behaviour
    (void)huge.umaskOctal();
}

} // namespace
} // namespace varnoth::test
