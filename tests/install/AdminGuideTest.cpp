// The administrator's guide against the code: its settings table, its complete example files and the
// --print-config sample must say what the agent really does, so the guide cannot drift from it.

#include "config/Config.h"
#include "config/ConfigReport.h"
#include "outlook/OutlookState.h"
#include "tests/install/PlistValue.h"
#include "tests/support/AgentTest.h"
#include "update/Diagnosis.h"
#include "update/DryRun.h"

#include <functional>
#include <iomanip>
#include <ranges>
#include <regex>

namespace varnoth::test {
namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}

// The first fenced block of the given language after the heading that starts with `heading`.
std::string fencedBlockAfter(const std::string& guide, const std::string& heading,
                             const std::string& language) {
    const auto open = guide.find("\n```" + language + "\n", guide.find("# " + heading));
    const auto start = open + language.size() + 5, end = guide.find("\n```\n", start - 1);
    return open == std::string::npos || end == std::string::npos ? "" : guide.substr(start, end + 1 - start);
}

// A value in the guide's notation: true or false, a number as std::to_string writes it.
template <typename T> std::string shown(T value) {
    std::ostringstream out;
    out << std::boolalpha << std::fixed << std::setprecision(6) << value;
    return out.str();
}

// Each key's value as the agent answers it, in the guide's notation.
// clang-format off
#define ANSWER(key) {#key, [](const Config& config) { return shown(config.key()); }}
const std::map<std::string, std::function<std::string(const Config&)>> answers = {
    ANSWER(UpdateFrequency), ANSWER(AllowConfigureDefaultSignatures), ANSWER(ShowViewLogMenu),
    ANSWER(ShowExitMenu), ANSWER(ShowLaunchAtLogon), ANSWER(SignatureServerAddress),
    ANSWER(SignatureServerPort), ANSWER(ShowConfigurationMenu), ANSWER(UserEmailAddress),
    ANSWER(SignatureServerAutodetect), ANSWER(LDAPUser), ANSWER(LDAPPassword), ANSWER(LDAPServer),
    ANSWER(SuppressErrorMessages)};
// clang-format on
#undef ANSWER

class AdminGuideTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        guide = readWholeFile(VARNOTH_ADMIN_GUIDE);
        // Key -> type and default, from the table whose header starts with "| Key | Type | Default |".
        const auto start = guide.find("| Key | Type | Default |");
        ASSERT_NE(start, std::string::npos) << VARNOTH_ADMIN_GUIDE;
        const std::regex row(R"(\| `(\w+)` \| ([^|]*?) \| (?:`([^`]*)`|empty)[^|]*\|.*)");
        for (const auto& line : lines(guide.substr(start))) {
            std::smatch cells;
            if (line.starts_with("| Key") || line.starts_with("|---")) {
                continue;
            } else if (!line.starts_with("|")) {
                break;
            } else if (std::regex_match(line, cells, row)) {
                EXPECT_TRUE(table.emplace(cells[1], Row{cells[2], cells[3]}).second) << "twice: " << line;
            } else {
                ADD_FAILURE() << "not a key with its type and default value: " << line;
            }
        }
    }

    // What the agent answers for a key the example gives in the guide's notation, where an interval is
    // hours as a bare number and minutes with "m".
    void expectAnswered(const std::string& key, const std::string& value) const {
        ASSERT_TRUE(table.count(key)) << key;
        const std::string expected = key != "UpdateFrequency" ? value
                                     : value.ends_with("m")
                                         ? shown(std::stof(value.substr(0, value.size() - 1)))
                                         : shown(std::stof(value) * 60);
        EXPECT_EQ(answers.at(key)(Config::shared()), expected) << key;
    }

    std::string guide;
    struct Row {
        std::string type, defaultValue;
    };
    std::map<std::string, Row> table;
};

TEST_F(AdminGuideTest, SettingsTableNamesEveryKeyOnceWithTheDefaultTheAgentAnswers) {
    EXPECT_TRUE(std::ranges::equal(table | std::views::keys, answers | std::views::keys));
    ASSERT_FALSE(Config::shared().usedFile());
    for (const auto& [key, row] : table) {
        expectAnswered(key, row.defaultValue);
    }
    // Every key of the log's settings entry is one the guide explains.
    for (const auto& line : lines(Config::shared().settingsText())) {
        EXPECT_TRUE(line.empty() || table.count(line.substr(0, line.find(':')))) << line;
    }
}

TEST_F(AdminGuideTest, CompleteTextExampleIsReadWithEveryValueItGivesAndPrintedAsTheSampleShows) {
    const std::string example = fencedBlockAfter(guide, "Text file", "text");
    ASSERT_FALSE(example.empty());
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", example);
    ASSERT_TRUE(Config::shared().usedFile());
    const std::regex setting(R"(\s*(\w+)\s*=\s*([^=]*?)\s*)"); // a second "=" would be ignored by the agent
    for (const auto& line : lines(example)) {
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(line, parts, setting)) << line;
        std::string value = parts[2];
        if (table.count(parts[1]) && table.at(parts[1]).type == "Boolean") {
            // The text form takes integers only; a word would silently leave the default.
            ASSERT_EQ(value.find_first_not_of("-+0123456789"), std::string::npos) << line;
            value = shown(std::stoll(value) != 0);
        }
        expectAnswered(parts[1], value);
    }

    // The --print-config sample in the guide is what the agent prints for this file; paths differ from
    // machine to machine, the settings and discovery sections must not ("Key: " of an empty value aside).
    auto sections = [](const std::string& text) {
        const auto start = text.find("Effective settings"), end = text.find("Log file:");
        return start < end && end != std::string::npos
                   ? std::regex_replace(text.substr(start, end - start), std::regex(" +\n"), "\n")
                   : "";
    };
    const std::string sample = sections(fencedBlockAfter(guide, "Checking a deployment", "text"));
    ASSERT_FALSE(sample.empty());
    EXPECT_EQ(sample, sections(ConfigReport(Config::platformLocations()).text()));
}

TEST_F(AdminGuideTest, CompletePropertyListExampleIsReadWithEveryValueItGives) {
    const std::string example = fencedBlockAfter(guide, "Property list", "xml");
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.plist", example);
    ASSERT_TRUE(Config::shared().plistMode);
    const auto values = PlistValue::read(example);
    EXPECT_GE(values.size(), 10u);
    for (const auto& [key, value] : values) {
        ASSERT_TRUE(table.count(key)) << key;
        // A value of the wrong type silently gives the default, even where it looks right.
        EXPECT_TRUE(table.at(key).type.ends_with(value.type)) << key << ": " << value.type;
        expectAnswered(key, value.text);
    }
}

// Troubleshooting: every cause the agent names is in the guide as the log line it writes, every checklist
// line of the --diagnose examples is one the agent can print, and the exit statuses the guide, README
// and manual page give for --dry-run and --diagnose are the agent's.
TEST_F(AdminGuideTest, TroubleshootingGivesTheCauseLinesChecklistLinesAndExitStatusesTheAgentUses) {
    const std::string section = guide.substr(std::min(guide.find("## Troubleshooting"), guide.size()));
    using Blocker = OutlookState::Blocker;
    for (const auto blocker : {Blocker::notInstalled, Blocker::newMode, Blocker::automationRefused,
                               Blocker::accessibilityMissing}) {
        EXPECT_NE(section.find("Error: " + OutlookState::cause(blocker) + "\n"), std::string::npos)
            << OutlookState::cause(blocker);
    }
    const std::regex check(R"((ok      |warning |failed  )([^:]+): (.*))");
    int failures = 0;
    for (const auto& line : lines(section)) {
        std::smatch parts;
        if (std::regex_match(line, parts, check)) {
            const auto status = parts[1].str().starts_with("ok")        ? Diagnosis::Status::ok
                                : parts[1].str().starts_with("warning") ? Diagnosis::Status::warning
                                                                        : Diagnosis::Status::failed;
            EXPECT_EQ(Diagnosis::line({status, parts[2], parts[3]}), line);
            failures += status == Diagnosis::Status::failed;
        }
    }
    EXPECT_GE(failures, 3); // server down, Outlook in new mode, no configuration file
    const std::string dryRun = "exits with " + std::to_string(DryRun::nothingToChange) +
                               " when nothing would change, " + std::to_string(DryRun::wouldChange) +
                               " when something would and " + std::to_string(DryRun::failed) +
                               " when it cannot tell";
    for (const auto& document : {std::string(VARNOTH_ADMIN_GUIDE), std::string(VARNOTH_README)}) {
        const auto text = std::regex_replace(readWholeFile(document), std::regex("\\s+"), " ");
        EXPECT_NE(text.find("`--dry-run` " + dryRun), std::string::npos) << document;
        EXPECT_NE(text.find("`--diagnose` exits with 0 when no check failed and 1 otherwise"),
                  std::string::npos)
            << document;
    }
    const auto manual = std::regex_replace(readWholeFile(VARNOTH_MANUAL_PAGE), std::regex("\\s+"), " ");
    EXPECT_NE(manual.find(".B \\-\\-dry\\-run " + dryRun), std::string::npos);
    EXPECT_NE(manual.find(".B \\-\\-diagnose exits with 0 when no check failed and 1 otherwise"),
              std::string::npos);
}

} // namespace
} // namespace varnoth::test
