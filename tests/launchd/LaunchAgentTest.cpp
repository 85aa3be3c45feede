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

// Assignments to one record, one interval and one set of permission bits, each answered with what it left;
// file permissions made from numbers, answered with their numbers and texts.
TEST(LaunchAgentTest, AssignmentsAndPermissionsTranscripts) {
    LaunchAgent agent("job");
    StartCalendarInterval interval;
    PermissionBits bits{PermissionBits::read, PermissionBits::execute};
    const auto bitsText = [](std::optional<PermissionBits> b) {
        return b ? std::to_string(b->rawValue()) : "none";
    };
    const auto texts = [](const FilePermissions& p) { return p.octal() + " " + p.symbolic(); };
    const auto answer = [&](const std::string& word, const std::string& rest) -> std::string {
        std::istringstream in(rest);
        const Words words{std::istream_iterator<std::string>(in), {}};
        const auto number = [&](std::size_t at) { return std::stoll(words.at(at)); };
        const auto bit = [&](std::size_t at) { return PermissionBits(number(at)); };
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
            const auto [inserted, member] = bits.insert(bit(0));
            return std::to_string(inserted) + " " + bitsText(member) + ", now " + bitsText(bits);
        }
        if (word == "remove" || word == "update") {
            const auto old = word == "remove" ? bits.remove(bit(0)) : bits.update(bit(0));
            return bitsText(old) + ", now " + bitsText(bits);
        }
        if (word == "bits") {
            const FilePermissions p{bit(0), bit(1), bit(2)};
            return std::to_string(p.value()) + " " + texts(p) + " umask " + p.umaskOctal() + " " +
                   std::to_string(p.umaskValue()) + ", " + p.description();
        }
        if (word == "fromValue" || word == "fromUmask" || word == "octalText" || word == "description") {
            return word == "fromValue"   ? texts(FilePermissions::fromValue(number(0)))
                   : word == "fromUmask" ? texts(FilePermissions::fromUmask(number(0)))
                   : word == "octalText" ? FilePermissions::octalText(number(0))
                                         : bit(0).description();
        }
        word == "label"                 ? void(agent = LaunchAgent(rest))
        : word == "job"                 ? void(agent = LaunchAgent("job", words))
        : word == "setProgram"          ? agent.setProgram(given(rest))
        : word == "setProgramArguments" ? agent.setProgramArguments(given(words))
        : word == "workingDirectory"    ? void(agent.workingDirectory = unescaped(rest))
                                        : agent.setNice(number(0));
        return orError([&] { return oneLine(agent); });
    };
    expectTranscript("launchd/assignments", answer);
    expectTranscript("launchd/permissions", answer);
}

} // namespace
} // namespace varnoth::test
