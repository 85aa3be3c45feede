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

using Kind = PropertyListError::Kind;
using Keys = std::vector<std::string>;

template <typename T> Kind decodingFailure(const std::string& body) {
    try {
        decodedFrom<T>(body);
    } catch (const PropertyListError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "decoded without error: " << body;
    return Kind::invalidValue;
}

TEST(StartCalendarIntervalTest, SettersClampConstructionAndDecodingKeepValues) {
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
    const auto decoded = decodedFrom<StartCalendarInterval>("<key>Minute</key><integer>75</integer>"
                                                            "<key>Day</key><integer>0</integer>"
                                                            "<key>Second</key><integer>5</integer>");
    EXPECT_EQ(decoded, StartCalendarInterval(std::nullopt, std::nullopt, 0, std::nullopt, 75));
}

TEST(StartCalendarIntervalTest, EncodesPresentFieldsInFixedOrderAndRejectsBadMonthsAndTypes) {
    StartCalendarInterval partial;
    partial.setMinute(15);
    partial.setHour(3);
    EXPECT_EQ(rootKeys(encodedXml(partial)), (Keys{"Hour", "Minute"}));

    const StartCalendarInterval full(StartMonth::march, StartWeekday::sunday, 2, 3, 4);
    const std::string xml = encodedXml(full);
    EXPECT_EQ(rootKeys(xml), (Keys{"Month", "Weekday", "Day", "Hour", "Minute"}));
    EXPECT_NE(xml.find("<key>Weekday</key>\n\t<integer>7</integer>"), std::string::npos) << xml;
    EXPECT_EQ(PropertyListDecoder().decode<StartCalendarInterval>(xml), full);
    EXPECT_EQ(decodedFrom<StartCalendarInterval>("<key>Month</key><integer>12</integer>").month,
              StartMonth::december);

    for (const auto& [body, kind] : std::vector<std::pair<std::string, Kind>>{
             {"<key>Month</key><integer>13</integer>", Kind::dataCorrupted},
             {"<key>Month</key><integer>0</integer>", Kind::dataCorrupted},
             {"<key>Month</key><integer>-1</integer>", Kind::dataCorrupted},
             {"<key>Weekday</key><integer>0</integer>", Kind::dataCorrupted},
             {"<key>Weekday</key><integer>8</integer>", Kind::dataCorrupted},
             {"<key>Hour</key><string>3</string>", Kind::typeMismatch},
             {"<key>Month</key><real>3.0</real>", Kind::typeMismatch}}) {
        EXPECT_EQ(decodingFailure<StartCalendarInterval>(body), kind) << body;
    }
}

TEST(NestedRecordsTest, MachServiceInetdAndResourceLimitsCoding) {
    EXPECT_EQ(decodingFailure<MachService>("<key>ResetAtClose</key><true/>"), Kind::keyNotFound);
    EXPECT_EQ(decodingFailure<MachService>(
                  "<key>HideUntilCheckIn</key><true/><key>ResetAtClose</key><integer>1</integer>"),
              Kind::typeMismatch);
    EXPECT_EQ(rootKeys(encodedXml(MachService(false, false))), (Keys{"HideUntilCheckIn", "ResetAtClose"}));
    EXPECT_EQ(decodingFailure<inetdCompatibility>("<key>wait</key><true/>"), Kind::keyNotFound);
    EXPECT_NE(encodedXml(inetdCompatibility(false)).find("<key>Wait</key>\n\t<false/>"), std::string::npos);

    const ResourceLimits all(1, 2, 3, 4, 5, 6, 7, 8, -1);
    const std::string xml = encodedXml(all);
    EXPECT_EQ(rootKeys(xml), (Keys{"CPU", "Core", "Data", "FileSize", "MemoryLock", "NumberOfFiles",
                                   "NumberOfProcesses", "ResidentSetSize", "Stack"}));
    EXPECT_EQ(PropertyListDecoder().decode<ResourceLimits>(xml), all);
    EXPECT_EQ(rootKeys(encodedXml(ResourceLimits(std::nullopt, 0))), Keys{"Core"});
    EXPECT_EQ(decodingFailure<ResourceLimits>("<key>Core</key><false/>"), Kind::typeMismatch);
    for (const auto& [type, raw] : {std::pair(ProcessType::standard, "Standard"),
                                    {ProcessType::background, "Background"},
                                    {ProcessType::adaptive, "Adaptive"},
                                    {ProcessType::interactive, "Interactive"}}) {
        EXPECT_EQ(rawValue(type), raw);
        EXPECT_EQ(processTypeFromRawValue(raw), type);
    }
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
