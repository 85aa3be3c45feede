// The administrator's guide against the code: its settings table, its complete example files and the
// --print-config sample must say what the agent really does, so the guide cannot drift from it.

#include "config/Config.h"
#include "config/ConfigReport.h"
#include "tests/install/PlistValue.h"
#include "tests/support/AgentTest.h"

#include <functional>
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

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The first fenced block of the given language after a heading that contains `heading`.
std::string fencedBlockAfter(const std::string& guide, const std::string& heading,
                             const std::string& language) {
    bool inSection = false, inBlock = false;
    std::string block;
    for (const auto& line : lines(guide)) {
        if (!inBlock && line.starts_with("#")) {
            inSection = line.find(heading) != std::string::npos;
        } else if (inSection && !inBlock && line == "```" + language) {
            inBlock = true;
        } else if (inBlock && line == "```") {
            return block;
        } else if (inBlock) {
            block += line + "\n";
        }
    }
    return "";
}

template <typename T> std::string shown(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else {
        return value;
    }
}

// An interval as the guide explains it: a bare number is hours, a number with "m" minutes.
std::string minutes(const std::string& text) {
    return text.ends_with("m") ? shown(std::stof(text.substr(0, text.size() - 1)))
                               : shown(std::stof(text) * 60);
}

// Each key's value as the agent answers it, in the guide's notation.
const std::map<std::string, std::function<std::string(const Config&)>> answers = {
    {"UpdateFrequency", [](const Config& c) { return shown(c.UpdateFrequency()); }},
    {"AllowConfigureDefaultSignatures",
     [](const Config& c) { return shown(c.AllowConfigureDefaultSignatures()); }},
    {"ShowViewLogMenu", [](const Config& c) { return shown(c.ShowViewLogMenu()); }},
    {"ShowExitMenu", [](const Config& c) { return shown(c.ShowExitMenu()); }},
    {"ShowLaunchAtLogon", [](const Config& c) { return shown(c.ShowLaunchAtLogon()); }},
    {"SignatureServerAddress", [](const Config& c) { return shown(c.SignatureServerAddress()); }},
    {"SignatureServerPort", [](const Config& c) { return shown(c.SignatureServerPort()); }},
    {"ShowConfigurationMenu", [](const Config& c) { return shown(c.ShowConfigurationMenu()); }},
    {"UserEmailAddress", [](const Config& c) { return shown(c.UserEmailAddress()); }},
    {"SignatureServerAutodetect", [](const Config& c) { return shown(c.SignatureServerAutodetect()); }},
    {"LDAPUser", [](const Config& c) { return shown(c.LDAPUser()); }},
    {"LDAPPassword", [](const Config& c) { return shown(c.LDAPPassword()); }},
    {"LDAPServer", [](const Config& c) { return shown(c.LDAPServer()); }},
    {"SuppressErrorMessages", [](const Config& c) { return shown(c.SuppressErrorMessages()); }},
};

class AdminGuideTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        guide = readWholeFile(VARNOTH_ADMIN_GUIDE);
        ASSERT_FALSE(guide.empty()) << VARNOTH_ADMIN_GUIDE;
        // Key -> type and default, from the table whose header starts with "| Key | Type | Default |".
        const auto all = lines(guide);
        auto line = std::find_if(all.begin(), all.end(),
                                 [](const auto& l) { return l.starts_with("| Key | Type | Default |"); });
        const std::regex row(R"(\| `(\w+)` \| ([^|]*?) \| (?:`([^`]*)`|empty)[^|]*\|.*)");
        for (line = line == all.end() ? line : line + 2; line != all.end() && line->starts_with("|");
             ++line) {
            std::smatch cells;
            if (!std::regex_match(*line, cells, row)) {
                ADD_FAILURE() << "not a key with its type and default value: " << *line;
                continue;
            }
            table[cells[1]] = {cells[2], cells[3]};
            ++tableRows;
        }
    }

    // What the agent answers for a key the example gives in the guide's notation.
    void expectAnswered(const std::string& key, const std::string& value) const {
        ASSERT_TRUE(table.count(key)) << key;
        EXPECT_EQ(answers.at(key)(Config::shared()), key == "UpdateFrequency" ? minutes(value) : value)
            << key;
    }

    std::string guide;
    struct Row {
        std::string type, defaultValue;
    };
    std::map<std::string, Row> table;
    std::size_t tableRows = 0;
};

TEST_F(AdminGuideTest, SettingsTableNamesEveryKeyOnceWithTheDefaultTheAgentAnswers) {
    ASSERT_EQ(tableRows, table.size()) << "a key appears twice in the settings table";
    auto keys = [](const auto& map) {
        std::vector<std::string> result;
        for (const auto& entry : map) {
            result.push_back(entry.first);
        }
        return result;
    };
    EXPECT_EQ(keys(table), keys(answers));

    const Config& config = Config::shared();
    ASSERT_FALSE(config.usedFile());
    for (const auto& [key, row] : table) {
        // The agent answers the interval in minutes; the table gives the minutes too.
        EXPECT_EQ(key == "UpdateFrequency" ? shown(std::stof(row.defaultValue)) : row.defaultValue,
                  answers.at(key)(config))
            << key;
    }

    // Every key of the log's settings entry is one the guide explains.
    for (const auto& line : lines(config.settingsText())) {
        if (!line.empty()) {
            EXPECT_TRUE(table.count(line.substr(0, line.find(':')))) << line;
        }
    }
}

TEST_F(AdminGuideTest, CompleteTextExampleIsReadWithEveryValueItGivesAndPrintedAsTheSampleShows) {
    const std::string example = fencedBlockAfter(guide, "Text file", "text");
    ASSERT_FALSE(example.empty());
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", example);
    ASSERT_TRUE(Config::shared().usedFile());
    for (const auto& line : lines(example)) {
        const auto equals = line.find('=');
        ASSERT_NE(equals, std::string::npos) << line;
        ASSERT_EQ(line.find('=', equals + 1), std::string::npos) << "ignored by the agent: " << line;
        const std::string key = trim(line.substr(0, equals));
        std::string value = trim(line.substr(equals + 1));
        if (table.count(key) && table.at(key).type == "Boolean") {
            // The text form takes integers only; a word would silently leave the default.
            ASSERT_EQ(value.find_first_not_of("-+0123456789"), std::string::npos) << key << ": " << value;
            value = shown(std::stoll(value) != 0);
        }
        expectAnswered(key, value);
    }

    // The --print-config sample in the guide is what the agent prints for this file.
    const std::string sample = fencedBlockAfter(guide, "Checking a deployment", "text");
    const std::string printed = ConfigReport(Config::platformLocations()).text();

    // Paths differ from machine to machine; the settings and discovery sections must not.
    auto sections = [](const std::string& text) {
        const auto start = text.find("Effective settings");
        const auto end = text.find("Log file:");
        std::string section;
        if (start != std::string::npos && end != std::string::npos) {
            for (const auto& line : lines(text.substr(start, end - start))) {
                section += line.substr(0, line.find_last_not_of(' ') + 1) + "\n"; // "Key: " of an empty value
            }
        }
        return section;
    };
    ASSERT_FALSE(sections(sample).empty());
    EXPECT_EQ(sections(sample), sections(printed));
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
        EXPECT_TRUE(table.at(key).type.ends_with(value.type)) << key << ": " << value;
        expectAnswered(key, value.text);
    }
}

} // namespace
} // namespace varnoth::test
