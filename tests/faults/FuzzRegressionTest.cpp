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
class FuzzRegressionTest : public AgentTest {
protected:
    static std::vector<std::filesystem::path> inputs(const std::string& target) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(VARNOTH_FUZZ_REGRESSIONS) / target)) {
            files.push_back(entry.path());
        }
        EXPECT_FALSE(files.empty()) << target;
        return files;
    }
};

TEST_F(FuzzRegressionTest, PropertyListConfigurationsWithNulInAString) {
    const Config::Locations locations{root() / "etc", root() / "support", "Agent"};
    for (const auto& input : inputs("plist_config")) {
        SCOPED_TRACE(input.filename().string());
        writeFile(locations.systemFolder / "Agent/Fuzz.plist", readWholeFile(input));
        const Config config(locations, "Fuzz");
        EXPECT_TRUE(config.plistMode);
        (void)config.UpdateFrequency();
        (void)config.LDAPServer();
        (void)config.UserEmailAddress();
        (void)config.settingsText();
        if (input.filename() == "nul-in-string.plist") {
            // The string is taken at the length the parser gives, rather than ending the process.
            EXPECT_EQ(config.SignatureServerAddress().size(), 16u);
            EXPECT_EQ(config.SignatureServerAddress().rfind("127", 0), 0u);
        }
    }
}

TEST_F(FuzzRegressionTest, JobRecordsWithNulInAKey) {
    for (const auto& input : inputs("launch_agent")) {
        SCOPED_TRACE(input.filename().string());
        const std::string bytes = readWholeFile(input);
        std::optional<LaunchAgent> agent;
        try {
            agent = PropertyListDecoder().decode<LaunchAgent>(bytes);
        } catch (const PropertyListError&) {
            continue; // refusing the record is fine; ending the process is not
        }
        const std::string encoded = PropertyListEncoder().encode(*agent);
        EXPECT_EQ(PropertyListDecoder().decode<LaunchAgent>(encoded), *agent);
    }
}

} // namespace
} // namespace varnoth::test
