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

template <typename T> Kind decodingFailure(const std::string& body) {
    try {
        decodedFrom<T>(body);
    } catch (const PropertyListError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "decoded without error: " << body;
    return Kind::invalidValue;
}

TEST(EnumerationsTest, RawValuesAcceptOnlyTheirCases) {
    EXPECT_EQ(startWeekdayFromRawValue(7), StartWeekday::sunday);
    EXPECT_EQ(startWeekdayFromRawValue(1), StartWeekday::monday);
    EXPECT_EQ(startWeekdayFromRawValue(0), std::nullopt);
    EXPECT_EQ(startWeekdayFromRawValue(8), std::nullopt);
    EXPECT_EQ(startMonthFromRawValue(12), StartMonth::december);
    EXPECT_EQ(startMonthFromRawValue(1), StartMonth::january);
    EXPECT_EQ(startMonthFromRawValue(13), std::nullopt);
    EXPECT_EQ(startMonthFromRawValue(0), std::nullopt);
    EXPECT_EQ(startMonthFromRawValue(-1), std::nullopt);
    EXPECT_EQ(processTypeFromRawValue("Background"), ProcessType::background);
    EXPECT_EQ(processTypeFromRawValue("background"), std::nullopt);
    EXPECT_EQ(processTypeFromRawValue(""), std::nullopt);
    for (const ProcessType type :
         {ProcessType::standard, ProcessType::background, ProcessType::adaptive, ProcessType::interactive}) {
        EXPECT_EQ(processTypeFromRawValue(rawValue(type)), type);
    }
    EXPECT_EQ(rawValue(ProcessType::interactive), "Interactive");
}

TEST(StartCalendarIntervalTest, SettersClampButConstructionAndDecodingKeepValues) {
    StartCalendarInterval interval;
    interval.setDay(0);
    EXPECT_EQ(interval.day(), 1);
    interval.setDay(40);
    EXPECT_EQ(interval.day(), 31);
    interval.setDay(31);
    EXPECT_EQ(interval.day(), 31);
    interval.setHour(24);
    EXPECT_EQ(interval.hour(), 23);
    interval.setHour(-1);
    EXPECT_EQ(interval.hour(), 0);
    interval.setMinute(-5);
    EXPECT_EQ(interval.minute(), 0);
    interval.setMinute(60);
    EXPECT_EQ(interval.minute(), 59);
    interval.setMinute(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(interval.minute(), 0);
    interval.setMinute(std::nullopt);
    EXPECT_EQ(interval.minute(), std::nullopt);

    const StartCalendarInterval constructed(std::nullopt, std::nullopt, 40, 99, -3);
    EXPECT_EQ(constructed.day(), 40);
    EXPECT_EQ(constructed.hour(), 99);
    EXPECT_EQ(constructed.minute(), -3);

    const auto decoded = decodedFrom<StartCalendarInterval>("<key>Minute</key><integer>75</integer>"
                                                            "<key>Day</key><integer>0</integer>");
    EXPECT_EQ(decoded.minute(), 75);
    EXPECT_EQ(decoded.day(), 0);
}

TEST(StartCalendarIntervalTest, EncodesPresentFieldsOnlyInFixedOrder) {
    StartCalendarInterval interval;
    interval.setMinute(15);
    interval.setHour(3);
    EXPECT_EQ(rootKeys(encodedXml(interval)), (std::vector<std::string>{"Hour", "Minute"}));

    const StartCalendarInterval full(StartMonth::march, StartWeekday::sunday, 2, 3, 4);
    const std::string xml = encodedXml(full);
    EXPECT_EQ(rootKeys(xml), (std::vector<std::string>{"Month", "Weekday", "Day", "Hour", "Minute"}));
    EXPECT_NE(xml.find("<key>Month</key>\n\t<integer>3</integer>"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<key>Weekday</key>\n\t<integer>7</integer>"), std::string::npos) << xml;
    EXPECT_EQ(PropertyListDecoder().decode<StartCalendarInterval>(xml), full);
}

TEST(StartCalendarIntervalTest, DecodingRejectsOutOfRangeMonthsAndWrongTypes) {
    EXPECT_EQ(decodingFailure<StartCalendarInterval>("<key>Month</key><integer>13</integer>"),
              Kind::dataCorrupted);
    EXPECT_EQ(decodingFailure<StartCalendarInterval>("<key>Weekday</key><integer>0</integer>"),
              Kind::dataCorrupted);
    EXPECT_EQ(decodingFailure<StartCalendarInterval>("<key>Hour</key><string>3</string>"),
              Kind::typeMismatch);
    EXPECT_EQ(decodingFailure<StartCalendarInterval>("<key>Month</key><real>3.0</real>"), Kind::typeMismatch);
    const auto withUnknown = decodedFrom<StartCalendarInterval>("<key>Second</key><integer>5</integer>"
                                                                "<key>Weekday</key><integer>7</integer>");
    EXPECT_EQ(withUnknown, StartCalendarInterval(std::nullopt, StartWeekday::sunday));
}

TEST(NestedRecordsTest, MachServiceAndInetdRequireTheirKeysAndAlwaysWriteThem) {
    EXPECT_EQ(decodingFailure<MachService>("<key>ResetAtClose</key><true/>"), Kind::keyNotFound);
    EXPECT_EQ(decodingFailure<MachService>(
                  "<key>HideUntilCheckIn</key><true/><key>ResetAtClose</key><integer>1</integer>"),
              Kind::typeMismatch);
    EXPECT_EQ(decodedFrom<MachService>("<key>HideUntilCheckIn</key><true/><key>ResetAtClose</key><false/>"),
              MachService(true, false));
    EXPECT_EQ(rootKeys(encodedXml(MachService(false, false))),
              (std::vector<std::string>{"HideUntilCheckIn", "ResetAtClose"}));

    EXPECT_EQ(decodingFailure<inetdCompatibility>("<key>wait</key><true/>"), Kind::keyNotFound);
    EXPECT_EQ(decodedFrom<inetdCompatibility>("<key>Wait</key><true/>"), inetdCompatibility(true));
    EXPECT_NE(encodedXml(inetdCompatibility(false)).find("<key>Wait</key>\n\t<false/>"), std::string::npos);
}

TEST(NestedRecordsTest, ResourceLimitsRoundTripInKeyOrder) {
    const ResourceLimits all(1, 2, 3, 4, 5, 6, 7, 8, -1);
    const std::string xml = encodedXml(all);
    EXPECT_EQ(rootKeys(xml),
              (std::vector<std::string>{"CPU", "Core", "Data", "FileSize", "MemoryLock", "NumberOfFiles",
                                        "NumberOfProcesses", "ResidentSetSize", "Stack"}));
    EXPECT_EQ(PropertyListDecoder().decode<ResourceLimits>(xml), all);

    ResourceLimits some;
    some.numberOfFiles = 1024;
    EXPECT_EQ(rootKeys(encodedXml(some)), (std::vector<std::string>{"NumberOfFiles"}));
    EXPECT_EQ(decodingFailure<ResourceLimits>("<key>Core</key><false/>"), Kind::typeMismatch);
}

TEST(PermissionBitsTest, DescriptionAndSetOperations) {
    EXPECT_EQ(PermissionBits(5).description(), "r-x");
    EXPECT_EQ(PermissionBits(0).description(), "---");
    EXPECT_EQ(PermissionBits(7).description(), "rwx");
    EXPECT_EQ(PermissionBits(12).description(), "r--"); // only the three low bits show
    EXPECT_EQ(PermissionBits::read.rawValue(), 4);
    EXPECT_EQ(PermissionBits::write.rawValue(), 2);
    EXPECT_EQ(PermissionBits::execute.rawValue(), 1);

    PermissionBits bits{PermissionBits::read, PermissionBits::execute};
    EXPECT_EQ(bits.rawValue(), 5);
    EXPECT_EQ(bits.insert(PermissionBits::read), std::make_pair(false, PermissionBits::read));
    EXPECT_EQ(bits.insert(PermissionBits::write), std::make_pair(true, PermissionBits::write));
    EXPECT_EQ(bits.rawValue(), 7);
    EXPECT_EQ(bits.remove(PermissionBits::execute), PermissionBits::execute);
    EXPECT_EQ(bits.remove(PermissionBits::execute), std::nullopt);
    EXPECT_EQ(bits.update(PermissionBits{PermissionBits::read, PermissionBits::execute}),
              PermissionBits::read);
    EXPECT_EQ(bits.rawValue(), 7);
    EXPECT_EQ(bits.update(PermissionBits(8)), std::nullopt);
    EXPECT_EQ(bits.rawValue(), 15);

    const PermissionBits readWrite{PermissionBits::read, PermissionBits::write};
    EXPECT_TRUE(PermissionBits::read.isSubset(readWrite));
    EXPECT_FALSE(PermissionBits::execute.isSubset(readWrite));
    EXPECT_TRUE(readWrite.isSuperset(PermissionBits::write));
    EXPECT_TRUE(PermissionBits().isEmpty());
    EXPECT_TRUE(PermissionBits().isSubset(readWrite));
    EXPECT_EQ((readWrite ^ PermissionBits(3)).rawValue(), 5);
    EXPECT_EQ((readWrite & PermissionBits(3)).rawValue(), 2);
    EXPECT_EQ((readWrite | PermissionBits::execute).rawValue(), 7);
}

TEST(FilePermissionsTest, NumbersAndTexts) {
    const FilePermissions common(PermissionBits(6), PermissionBits(4), PermissionBits(4));
    EXPECT_EQ(common.value(), 420);
    EXPECT_EQ(common.octal(), "644");
    EXPECT_EQ(common.symbolic(), "-rw-r--r--");
    EXPECT_EQ(common.umaskOctal(), "133");
    EXPECT_EQ(common.umaskValue(), 91);
    EXPECT_EQ(common.description(), "Permissions u+rw-, g+r--, o+r--");

    EXPECT_EQ(FilePermissions(PermissionBits(0), PermissionBits(0), PermissionBits(7)).octal(), "007");
    const FilePermissions executable(PermissionBits(7), PermissionBits(5), PermissionBits(5));
    EXPECT_EQ(executable.umaskOctal(), "022");
    EXPECT_EQ(executable.umaskValue(), 18);

    for (const std::int64_t number : {493, 1005}) { // 755 and 1755
        const FilePermissions fromValue = FilePermissions::fromValue(number);
        EXPECT_EQ(fromValue.user().rawValue(), 7) << number;
        EXPECT_EQ(fromValue.group().rawValue(), 5) << number;
        EXPECT_EQ(fromValue.other().rawValue(), 5) << number;
        EXPECT_EQ(fromValue.symbolic(), "-rwxr-xr-x");
    }
    const FilePermissions fromUmask = FilePermissions::fromUmask(18);
    EXPECT_EQ(fromUmask.symbolic(), "-rwxr-xr-x");
    EXPECT_EQ(FilePermissions::fromUmask(0).octal(), "777");
    EXPECT_EQ(FilePermissions::fromValue(0).octal(), "000");
    EXPECT_EQ(FilePermissions::fromValue(-1).octal(), "777"); // the low nine bits of -1
}

TEST(FilePermissionsTest, OctalTextAndUncheckedRawValues) {
    EXPECT_EQ(FilePermissions::octalText(0), "000");
    EXPECT_EQ(FilePermissions::octalText(8), "010");
    EXPECT_EQ(FilePermissions::octalText(511), "777");
    EXPECT_EQ(FilePermissions::octalText(512), "000"); // 1000 in base 8: the last three digits
    EXPECT_EQ(FilePermissions::octalText(-1), "0-1");

    // Raw values beyond one digit are combined arithmetically; the symbolic text shows the low bits.
    FilePermissions wide(PermissionBits(8), PermissionBits(0), PermissionBits(9));
    EXPECT_EQ(wide.value(), 8 * 64 + 9);
    EXPECT_EQ(wide.octal(), "011");
    EXPECT_EQ(wide.symbolic(), "---------x");
    wide.setUser(PermissionBits(std::numeric_limits<std::int64_t>::max()));
    (void)wide.value(); // wraps without undefined behaviour
    (void)wide.umaskOctal();
}

} // namespace
} // namespace varnoth::test
