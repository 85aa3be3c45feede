// The macOS bundle's information dictionary and entitlements: they are only used on a Mac, so their
// content is checked here, where a typo would otherwise go unnoticed until a Mac build.

#include "BuildInfo.h"
#include "tests/install/PlistValue.h"

#include <gtest/gtest.h>

namespace varnoth::test {
namespace {

PlistValue text(const std::string& value) {
    return {"text", value};
}
PlistValue flag(bool value) {
    return {"Boolean", value ? "true" : "false"};
}

TEST(BundleFilesTest, InformationDictionaryMakesAMenuBarAgentWithTheBuildsValues) {
    const std::string xml = readWholeFile(VARNOTH_INFO_PLIST);
    EXPECT_EQ(xml.find("${"), std::string::npos) << "a value was not filled in";
    auto info = PlistValue::read(xml);
    ASSERT_FALSE(info.empty()) << xml;
    EXPECT_EQ(info["CFBundleName"], text("Varnoth Brelvane Agent"));
    EXPECT_EQ(info["CFBundleName"], text(build::bundleName));
    EXPECT_EQ(info["CFBundleIdentifier"], text(build::bundleIdentifier));
    EXPECT_EQ(info["CFBundleShortVersionString"], text(build::shortVersion));
    EXPECT_EQ(info["CFBundleVersion"], text(build::bundleVersion));
    EXPECT_EQ(info["CFBundleExecutable"], text(build::bundleName));
    EXPECT_EQ(info["CFBundlePackageType"], text("APPL"));
    EXPECT_EQ(info["LSUIElement"], flag(true)); // menu bar only, no Dock icon
    EXPECT_NE(info["NSAppleEventsUsageDescription"].text.find("Outlook"), std::string::npos);
}

TEST(BundleFilesTest, EntitlementsAllowAppleEventsToOutlookOutsideTheSandbox) {
    const std::map<std::string, PlistValue> expected = {
        {"com.apple.security.app-sandbox", flag(false)},
        {"com.apple.security.automation.apple-events", flag(true)},
        {"com.apple.security.scripting-targets", text("com.microsoft.Outlook")},
        {"com.apple.security.temporary-exception.apple-events", flag(true)},
    };
    EXPECT_EQ(PlistValue::read(readWholeFile(VARNOTH_ENTITLEMENTS)), expected);
}

} // namespace
} // namespace varnoth::test
