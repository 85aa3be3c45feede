// The macOS bundle's information dictionary and entitlements: they are only used on a Mac, so their
// content is checked here, where a typo would otherwise go unnoticed until a Mac build.

#include "BuildInfo.h"
#include "tests/install/PlistValue.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

const auto text = [](const std::string& value) { return PlistValue{"text", value}; };
const auto flag = [](bool value) { return PlistValue{"Boolean", value ? "true" : "false"}; };

TEST(BundleFilesTest, InformationDictionaryMakesAMenuBarAgentWithTheBuildsValues) {
    const std::string xml = readWholeFile(VARNOTH_INFO_PLIST);
    EXPECT_EQ(xml.find("${"), std::string::npos) << "a value was not filled in";
    auto info = PlistValue::read(xml);
    EXPECT_EQ(build::bundleName, std::string("Varnoth Brelvane Agent"));
    for (const auto& [key, value] :
         std::map<std::string, PlistValue>{{"CFBundleName", text(build::bundleName)},
                                           {"CFBundleIdentifier", text(build::bundleIdentifier)},
                                           {"CFBundleShortVersionString", text(build::shortVersion)},
                                           {"CFBundleVersion", text(build::bundleVersion)},
                                           {"CFBundleExecutable", text(build::bundleName)},
                                           {"CFBundlePackageType", text("APPL")},
                                           {"LSUIElement", flag(true)}}) { // menu bar only, no Dock icon
        EXPECT_EQ(info[key], value) << key;
    }
    EXPECT_NE(info["NSAppleEventsUsageDescription"].text.find("Outlook"), std::string::npos);
}

TEST(BundleFilesTest, EntitlementsAllowAppleEventsToOutlookOutsideTheSandbox) {
    EXPECT_EQ(PlistValue::read(readWholeFile(VARNOTH_ENTITLEMENTS)),
              (std::map<std::string, PlistValue>{
                  {"com.apple.security.app-sandbox", flag(false)},
                  {"com.apple.security.automation.apple-events", flag(true)},
                  {"com.apple.security.scripting-targets", text("com.microsoft.Outlook")},
                  {"com.apple.security.temporary-exception.apple-events", flag(true)}}));
}

} // namespace
} // namespace varnoth::test
