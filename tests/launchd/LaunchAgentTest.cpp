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
        return oneLine(decodedFrom<T>(body));
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
    EXPECT_EQ(oneLine(agent), "<dict><key>Label</key><string>job</string></dict>");
    for (const std::string& bad : {std::string("/a\0b", 4), std::string("\xff\xfe")}) {
        agent.workingDirectory = bad;
        EXPECT_THROW(oneLine(agent), PropertyListError);
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

// Assignments to one record, one interval and one set of permission bits, each answered with what it left.
TEST(LaunchAgentTest, AssignmentsTranscript) {
    LaunchAgent agent("job");
    StartCalendarInterval interval;
    PermissionBits bits{PermissionBits::read, PermissionBits::execute};
    const auto bitsText = [](std::optional<PermissionBits> b) {
        return b ? std::to_string(b->rawValue()) : "none";
    };
    expectTranscript("launchd/assignments", [&](const std::string& word, const std::string& rest) {
        Words words;
        std::istringstream in(rest);
        for (std::string w; in >> w;) {
            words.push_back(w);
        }
        const auto number = [&](std::size_t at) { return std::stoll(words.at(at)); };
        if (word == "interval" || word == "new") {
            word == "new"       ? void(interval = StartCalendarInterval(std::nullopt, std::nullopt, number(0),
                                                                        number(1), number(2)))
            : words[0] == "day" ? interval.setDay(number(1))
            : words[0] == "hour"
                ? interval.setHour(number(1))
                : interval.setMinute(words[1] == "none" ? std::nullopt : std::optional(number(1)));
            return oneLine(interval);
        }
        if (word == "insert") {
            const auto [inserted, member] = bits.insert(PermissionBits(number(0)));
            return std::to_string(inserted) + " " + bitsText(member) + ", now " + bitsText(bits);
        }
        if (word == "remove" || word == "update") {
            const auto old = word == "remove" ? bits.remove(PermissionBits(number(0)))
                                              : bits.update(PermissionBits(number(0)));
            return bitsText(old) + ", now " + bitsText(bits);
        }
        if (word == "job") {
            agent = LaunchAgent("job", words);
        } else if (word == "setProgram") {
            agent.setProgram(rest == "none" ? std::nullopt : std::optional(rest));
        } else if (word == "setProgramArguments") {
            agent.setProgramArguments(rest == "none" ? std::nullopt : std::optional(words));
        } else {
            agent.setNice(number(0));
            return "nice " + std::to_string(agent.nice().value_or(-99));
        }
        std::string text = "program " + agent.program().value_or("none") + ", arguments" +
                           (agent.programArguments() ? ":" : " none");
        for (const auto& argument : agent.programArguments().value_or(Words{})) {
            text += " [" + argument + "]";
        }
        return text;
    });
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
