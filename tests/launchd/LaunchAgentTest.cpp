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
#include <iterator>
#include <sstream>

namespace varnoth::test {
namespace {

using Words = std::vector<std::string>;

// What make gives, or the error that stopped it.
template <typename Make> std::string orError(Make make) try {
    return make();
} catch (const PropertyListError& error) {
    return error.what();
}

template <typename T> std::string reencoded(const std::string& bytes) {
    return orError([&] { return oneLine(PropertyListDecoder().decode<T>(bytes)); });
}

TEST(LaunchAgentTest, DecodingAndEncodingTranscript) {
    const std::map<std::string, std::string (*)(const std::string&)> records = {
        {"LaunchAgent", reencoded<LaunchAgent>},
        {"StartCalendarInterval", reencoded<StartCalendarInterval>},
        {"MachService", reencoded<MachService>},
        {"inetdCompatibility", reencoded<inetdCompatibility>},
        {"ResourceLimits", reencoded<ResourceLimits>}};
    // "bytes" is a whole file for a LaunchAgent; "ProcessType" a process type's name, answered with its place
    // in the enumeration and its name again; any other type the body of a record's root dictionary.
    expectTranscript("launchd/decoding", [&](const std::string& type, const std::string& body) {
        const auto process = [&] { return processTypeFromRawValue(body).value(); };
        return type == "bytes" ? reencoded<LaunchAgent>(unescaped(body))
               : type == "ProcessType"
                   ? std::to_string(static_cast<int>(process())) + " " + rawValue(process())
                   : records.at(type)(xmlPlist(body));
    });
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
        std::istringstream in(rest);
        const Words words{std::istream_iterator<std::string>(in), {}};
        const auto number = [&](std::size_t at) { return std::stoll(words.at(at)); };
        const auto given = [&](auto value) { return rest == "none" ? std::nullopt : std::optional(value); };
        if (word == "interval" || word == "new") {
            word == "new" ? void(interval = StartCalendarInterval(StartMonth::march, StartWeekday::sunday,
                                                                  number(0), number(1), number(2)))
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
        word == "label"                 ? void(agent = LaunchAgent(rest))
        : word == "job"                 ? void(agent = LaunchAgent("job", words))
        : word == "setProgram"          ? agent.setProgram(given(rest))
        : word == "setProgramArguments" ? agent.setProgramArguments(given(words))
        : word == "workingDirectory"    ? void(agent.workingDirectory = unescaped(rest))
                                        : agent.setNice(number(0));
        return orError([&] { return oneLine(agent); });
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
