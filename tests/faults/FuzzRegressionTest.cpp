#include "config/Config.h"
#include "launchd/LaunchAgent.h"
#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"
#include "launchd/PropertyListError.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <optional>

namespace varnoth::test {
namespace {

// Inputs the fuzz targets once crashed on, replayed through the same code.
std::vector<std::filesystem::path> inputs(const std::string& target) {
    const std::filesystem::directory_iterator folder(VARNOTH_FUZZ_REGRESSIONS "/" + target);
    std::vector<std::filesystem::path> files(begin(folder), end(folder));
    EXPECT_FALSE(files.empty()) << target;
    return files;
}

class FuzzRegressionTest : public AgentTest {};

TEST_F(FuzzRegressionTest, PropertyListConfigurationsWithNulInAString) {
    const Config::Locations locations{root() / "etc", root() / "support", "Agent"};
    for (const auto& input : inputs("plist_config")) {
        SCOPED_TRACE(input.filename().string());
        writeFile(locations.systemFolder / "Agent/Fuzz.plist", readWholeFile(input));
        const Config config(locations, "Fuzz");
        EXPECT_TRUE(config.plistMode);
        (void)config.UpdateFrequency(), (void)config.LDAPServer(), (void)config.UserEmailAddress();
        (void)config.settingsText();
        if (input.filename() == "nul-in-string.plist") {
            // The string is taken at the length the parser gives, rather than ending the process.
            const std::string address = config.SignatureServerAddress();
            EXPECT_TRUE(address.size() == 16 && address.starts_with("127")) << address;
        }
    }
}

TEST_F(FuzzRegressionTest, JobRecordsWithNulInAKey) {
    for (const auto& input : inputs("launch_agent")) {
        SCOPED_TRACE(input.filename().string());
        std::optional<LaunchAgent> agent;
        try {
            agent = PropertyListDecoder().decode<LaunchAgent>(readWholeFile(input));
        } catch (const PropertyListError&) {
            continue; // refusing the record is fine; ending the process is not
        }
        EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(PropertyListEncoder().encode(*agent)), *agent);
    }
}

} // namespace
} // namespace varnoth::test
