// The administrator's guide against the code: its settings table, its complete example files and the
// --print-config sample must say what the agent really does, so the guide cannot drift from it.

#include "core/Config.h"
#include "core/ConfigReport.h"
#include "tests/support/AgentTest.h"

#include <fstream>
#include <functional>
#include <map>
#include <plist/plist.h>
#include <set>
#include <sstream>

namespace varnoth::test {
namespace {

std::string readGuide() {
    std::ifstream in(VARNOTH_ADMIN_GUIDE, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

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
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string> cells(const std::string& row) {
    std::vector<std::string> result;
    std::string inner = trim(row);
    inner = inner.substr(1, inner.size() - 2); // the outer pipes
    std::size_t start = 0;
    for (std::size_t bar; (bar = inner.find('|', start)) != std::string::npos; start = bar + 1) {
        result.push_back(trim(inner.substr(start, bar - start)));
    }
    result.push_back(trim(inner.substr(start)));
    return result;
}

std::string unquoted(const std::string& cell) {
    if (cell.size() >= 2 && cell.front() == '`' && cell.back() == '`') {
        return cell.substr(1, cell.size() - 2);
    }
    return cell;
}

// The first fenced block of the given language after a heading that starts with `heading`.
std::string fencedBlockAfter(const std::string& guide, const std::string& heading,
                             const std::string& language) {
    const auto all = lines(guide);
    bool inSection = false;
    std::string block;
    bool inBlock = false;
    for (const auto& line : all) {
        if (!inBlock && line.starts_with("#")) {
            inSection = line.find(heading) != std::string::npos;
            continue;
        }
        if (!inSection) {
            continue;
        }
        if (!inBlock && line == "```" + language) {
            inBlock = true;
        } else if (inBlock && line == "```") {
            return block;
        } else if (inBlock) {
            block += line + "\n";
        }
    }
    return "";
}

// Each key's value as the agent answers it, in the guide's notation.
std::map<std::string, std::function<std::string(const Config&)>> answers() {
    auto flag = [](bool value) { return std::string(value ? "true" : "false"); };
    return {
        {"UpdateFrequency", [](const Config& c) { return std::to_string(c.UpdateFrequency()); }},
        {"AllowConfigureDefaultSignatures",
         [flag](const Config& c) { return flag(c.AllowConfigureDefaultSignatures()); }},
        {"ShowViewLogMenu", [flag](const Config& c) { return flag(c.ShowViewLogMenu()); }},
        {"ShowExitMenu", [flag](const Config& c) { return flag(c.ShowExitMenu()); }},
        {"ShowLaunchAtLogon", [flag](const Config& c) { return flag(c.ShowLaunchAtLogon()); }},
        {"SignatureServerAddress", [](const Config& c) { return c.SignatureServerAddress(); }},
        {"SignatureServerPort", [](const Config& c) { return std::to_string(c.SignatureServerPort()); }},
        {"ShowConfigurationMenu", [flag](const Config& c) { return flag(c.ShowConfigurationMenu()); }},
        {"UserEmailAddress", [](const Config& c) { return c.UserEmailAddress(); }},
        {"SignatureServerAutodetect",
         [flag](const Config& c) { return flag(c.SignatureServerAutodetect()); }},
        {"LDAPUser", [](const Config& c) { return c.LDAPUser(); }},
        {"LDAPPassword", [](const Config& c) { return c.LDAPPassword(); }},
        {"LDAPServer", [](const Config& c) { return c.LDAPServer(); }},
        {"SuppressErrorMessages", [flag](const Config& c) { return flag(c.SuppressErrorMessages()); }},
    };
}

// An interval as the guide explains it: a bare number is hours, a number with "m" minutes.
std::string minutes(const std::string& text) {
    if (text.ends_with("m")) {
        return std::to_string(std::stof(text.substr(0, text.size() - 1)));
    }
    return std::to_string(std::stof(text) * 60);
}

class AdminGuideTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        guide = readGuide();
        ASSERT_FALSE(guide.empty()) << VARNOTH_ADMIN_GUIDE;
    }

    // Key -> the row's cells, from the table whose header starts with "| Key | Type | Default |".
    std::map<std::string, std::vector<std::string>> settingsTable(std::vector<std::string>& order) const {
        std::map<std::string, std::vector<std::string>> rows;
        bool inTable = false;
        for (const auto& line : lines(guide)) {
            if (line.starts_with("| Key | Type | Default |")) {
                inTable = true;
                continue;
            }
            if (!inTable) {
                continue;
            }
            if (!line.starts_with("|")) {
                break;
            }
            if (line.starts_with("|---")) {
                continue;
            }
            const auto row = cells(line);
            const std::string key = unquoted(row.at(0));
            order.push_back(key);
            rows[key] = row;
        }
        return rows;
    }

    std::string guide;
};

TEST_F(AdminGuideTest, SettingsTableNamesEveryKeyOnceWithTheDefaultTheAgentAnswers) {
    std::vector<std::string> order;
    const auto table = settingsTable(order);
    const auto expected = answers();
    ASSERT_EQ(order.size(), table.size()) << "a key appears twice in the settings table";

    std::set<std::string> documented, known;
    for (const auto& [key, row] : table) {
        documented.insert(key);
    }
    for (const auto& [key, answer] : expected) {
        known.insert(key);
    }
    EXPECT_EQ(documented, known);

    const Config& config = Config::shared();
    ASSERT_FALSE(config.usedFile());
    for (const auto& [key, row] : table) {
        ASSERT_GE(row.size(), 4u) << key;
        const std::string cell = row[2];
        std::string documentedDefault;
        if (cell.starts_with("empty")) {
            documentedDefault = "";
        } else {
            ASSERT_TRUE(cell.starts_with("`")) << key << ": default not given as a value: " << cell;
            documentedDefault = unquoted(cell.substr(0, cell.find('`', 1) + 1));
        }
        if (key == "UpdateFrequency") {
            // The key counts in minutes when the agent answers; the table gives the minutes too.
            EXPECT_EQ(std::to_string(std::stof(documentedDefault)), expected.at(key)(config)) << key;
        } else {
            EXPECT_EQ(documentedDefault, expected.at(key)(config)) << key;
        }
    }

    // Every key of the log's settings entry is one the guide explains.
    std::istringstream entry(config.settingsText());
    for (std::string line; std::getline(entry, line);) {
        if (!line.empty()) {
            EXPECT_TRUE(documented.count(line.substr(0, line.find(':')))) << line;
        }
    }
}

TEST_F(AdminGuideTest, CompleteTextExampleIsReadWithEveryValueItGives) {
    const std::string example = fencedBlockAfter(guide, "Text file", "text");
    ASSERT_FALSE(example.empty());
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", example);
    const Config& config = Config::shared();
    ASSERT_TRUE(config.usedFile());

    std::vector<std::string> order;
    const auto table = settingsTable(order);
    const auto answer = answers();
    for (const auto& line : lines(example)) {
        const auto equals = line.find('=');
        ASSERT_NE(equals, std::string::npos) << line;
        ASSERT_EQ(line.find('=', equals + 1), std::string::npos) << "ignored by the agent: " << line;
        const std::string key = trim(line.substr(0, equals));
        const std::string value = trim(line.substr(equals + 1));
        ASSERT_TRUE(table.count(key)) << key;
        std::string expected = value;
        if (key == "UpdateFrequency") {
            expected = minutes(value);
        } else if (table.at(key)[1] == "Boolean") {
            // The text form takes integers only; a word would silently leave the default.
            ASSERT_EQ(value.find_first_not_of("-+0123456789"), std::string::npos) << key << ": " << value;
            expected = std::stoll(value) == 0 ? "false" : "true";
        }
        EXPECT_EQ(answer.at(key)(config), expected) << key;
    }
}

TEST_F(AdminGuideTest, CompletePropertyListExampleIsReadWithEveryValueItGives) {
    const std::string example = fencedBlockAfter(guide, "Property list", "xml");
    ASSERT_FALSE(example.empty());
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.plist", example);
    const Config& config = Config::shared();
    ASSERT_TRUE(config.plistMode);

    plist_t root = nullptr;
    plist_from_memory(example.data(), static_cast<uint32_t>(example.size()), &root);
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(plist_get_node_type(root), PLIST_DICT);
    std::vector<std::string> order;
    const auto table = settingsTable(order);
    const auto answer = answers();
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(root, &iterator);
    int keys = 0;
    for (;;) {
        char* name = nullptr;
        plist_t node = nullptr;
        plist_dict_next_item(root, iterator, &name, &node);
        if (name == nullptr) {
            break;
        }
        const std::string key = name;
        std::free(name);
        ++keys;
        ASSERT_TRUE(table.count(key)) << key;
        // A value of the wrong type silently gives the default, even where it looks right.
        const std::string type = table.at(key)[1];
        const plist_type expectedType = type == "Boolean"   ? PLIST_BOOLEAN
                                        : type == "integer" ? PLIST_UINT
                                                            : PLIST_STRING;
        EXPECT_EQ(plist_get_node_type(node), expectedType) << key;
        std::string expected;
        if (plist_get_node_type(node) == PLIST_BOOLEAN) {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            expected = value != 0 ? "true" : "false";
        } else if (plist_get_node_type(node) == PLIST_UINT) {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            expected = std::to_string(value);
        } else {
            ASSERT_EQ(plist_get_node_type(node), PLIST_STRING) << key;
            char* value = nullptr;
            plist_get_string_val(node, &value);
            expected = key == "UpdateFrequency" ? minutes(value) : std::string(value);
            std::free(value);
        }
        EXPECT_EQ(answer.at(key)(config), expected) << key;
    }
    std::free(iterator);
    plist_free(root);
    EXPECT_GE(keys, 10);
}

TEST_F(AdminGuideTest, PrintConfigSampleIsWhatTheAgentPrintsForTheTextExample) {
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
              fencedBlockAfter(guide, "Text file", "text"));
    const std::string sample = fencedBlockAfter(guide, "Checking a deployment", "text");
    ASSERT_FALSE(sample.empty());
    const std::string printed = ConfigReport(Config::platformLocations()).text();

    // Paths differ from machine to machine; the settings and discovery sections must not.
    auto sections = [](const std::string& text) {
        const auto start = text.find("Effective settings");
        const auto end = text.find("Log file:");
        if (start == std::string::npos || end == std::string::npos) {
            return std::string();
        }
        std::string section;
        for (const auto& line : lines(text.substr(start, end - start))) {
            section += line.substr(0, line.find_last_not_of(' ') + 1) + "\n"; // "Key: " of an empty value
        }
        return section;
    };
    ASSERT_FALSE(sections(sample).empty());
    EXPECT_EQ(sections(sample), sections(printed));
}

} // namespace
} // namespace varnoth::test
