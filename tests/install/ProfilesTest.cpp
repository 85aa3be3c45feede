// The example configuration profiles of packaging/profiles: property lists the agent's own reader takes,
// with unique payload identifiers and UUIDs, and a settings profile that forces exactly the keys the
// agent knows, each with its type and its default.

#include "agent/StatusMenu.h"
#include "config/Config.h"
#include "config/ManagedPreferencesFile.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"

#include <pugixml.hpp>
#include <regex>
#include <set>
#include <sstream>

namespace varnoth::test {
namespace {

using ProfilesTest = AgentTest;

TEST_F(ProfilesTest, ProfilesAreUniquePropertyListsAndTheSettingsProfileForcesEveryKeyWithItsTypeAndDefault) {
    std::set<std::string> identifiers, uuids;
    pugi::xml_document settings;
    for (const std::string name : {"settings", "privacy", "login-item"}) {
        const std::filesystem::path path = std::string(VARNOTH_PROFILES_DIR) + "/" + name + ".mobileconfig";
        std::string problem;
        EXPECT_TRUE(PlistDictionary::load(path, problem)) << path << ": " << problem;
        pugi::xml_document profile;
        ASSERT_TRUE(profile.load_file(path.c_str()));
        for (const auto& key : profile.select_nodes("//key[.='PayloadIdentifier' or .='PayloadUUID']")) {
            const std::string value = key.node().next_sibling().text().get();
            const bool uuid = std::string(key.node().text().get()) == "PayloadUUID";
            EXPECT_TRUE((uuid ? uuids : identifiers).insert(value).second) << "twice: " << value;
            EXPECT_TRUE(!uuid ||
                        std::regex_match(value, std::regex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")));
        }
        if (name == "settings") {
            settings.reset(profile);
        }
    }
    EXPECT_EQ(identifiers.size(), 6u);

    // The forced dictionary, placed where the agent reads managed preferences on Linux.
    const auto forced = settings.select_node("//key[.='mcx_preference_settings']").node().next_sibling();
    std::ostringstream plist;
    plist << "<plist version=\"1.0\">";
    forced.print(plist);
    plist << "</plist>";
    const std::string defaults = Config(Config::platformLocations()).settingsText();
    writeFile(ManagedPreferencesFile::platformPath(), plist.str());
    ManagedPreferencesFile file;
    Platform::Ports ports = Platform::ports();
    ports.managedPreferences = &file;
    Platform::install(ports);

    std::map<std::string, PreferenceValue::Type> expected(Config::keys().begin(), Config::keys().end()),
        found;
    expected[StatusMenu::launchAtLoginKey] = PreferenceValue::Type::boolean;
    for (auto key = forced.child("key"); key; key = key.next_sibling("key")) {
        found[key.text().get()] = file.forced(key.text().get())->type;
    }
    EXPECT_EQ(found, expected);
    Config::setShared(nullptr);
    EXPECT_EQ(Config::shared().settingsText(), defaults);
    for (const auto& setting : Config::shared().effectiveSettings()) {
        EXPECT_TRUE(setting.refused.empty()) << setting.key;
        // The empty address forces none: each user's own choice still counts.
        EXPECT_EQ(setting.source,
                  setting.key == "UserEmailAddress" ? Config::Source::fallback : Config::Source::managed)
            << setting.key;
    }
}

} // namespace
} // namespace varnoth::test
