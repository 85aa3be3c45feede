#include "base/TextValues.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/mac/AppleScriptObjCHost.h"
#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"
#include "platform/mac/MacAccessibility.h"
#include "platform/mac/MacBundle.h"
#include "platform/mac/MacHostInfo.h"
#include "platform/mac/MacManagedPreferences.h"
#include "platform/mac/MacUserDefaults.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#import "platform/mac/gnustep/AppleOnlyShim.h"

#include <functional>
#include <map>

// GNUstep's runtime keeps what it allocates for the life of the process and its frames carry no frame
// pointers, so a sanitizer build's leak report cannot tell its allocations from the bridge's.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libobjc.so\nleak:libgnustep-base.so\n";
}

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using ObjcBridgeTest = AgentTest;

std::string shown(const std::optional<std::string>& text) {
    return text ? "\"" + *text + "\"" : "nothing";
}
std::string shown(const std::optional<Lines>& names) {
    std::string listed;
    for (const auto& name : names.value_or(Lines{})) {
        listed += (listed.empty() ? "" : ", ") + name;
    }
    return names ? "[" + listed + "]" : "nothing";
}
std::string shown(bool delivered) {
    return std::to_string(delivered);
}
// One of the thirteen operations on a fresh script object, with the case's arguments in order.
#define OPERATION(name, ...)                                                                                 \
#name, [&]([[maybe_unused]] auto& a) { return shown(script().name(__VA_ARGS__)); }

// The bridge against tests/objc/OutlookScriptObj.m, loaded from its bundle as the Mac loads the script.
// First in the file: no test has loaded the stand-in's bundle yet.
TEST_F(ObjcBridgeTest, MessagesReachTheScriptClassAndTheMacServicesAnswer) {
    OutlookHandler::defaultAccount.reset();
    auto host = AppleScriptObjCHost::Create(VARNOTH_TEST_SCRIPT_BUNDLE),
         empty = AppleScriptObjCHost::Create(root());
    ASSERT_TRUE(host && empty);
    auto ports = Platform::ports();
    std::optional<OutlookHandler> handler;
    const auto script = [&] { return AppleScriptProtocol(host->makeObject(AppleScriptProtocol::className)); };
    const auto action = [](auto& number) { return SignatureAction(std::stoi(number)); };
    const std::map<std::string, std::function<std::string(const Lines&)>> steps = {
        {"use", [&](auto& a) { return ports.scriptHost = a[0] == "empty" ? empty.get() : host.get(), "ok"; }},
        {"load",
         [&](auto&) { return host->loadScripts(), std::to_string(AppleOnlyShimScriptLoads) + " loads"; }},
        {"object", [&](auto& a) { return host->makeObject(a[0]) ? "made" : "none"; }},
        {"handler", [&](auto&) { return handler.emplace(), shown(OutlookHandler::defaultAccount); }},
        {"create", [&](auto& a) { return shown(handler->createSignature(a[0], a[1])); }},
        {"apply",
         [&](auto& a) { return shown(handler->applyDefaultSignatures(action(a[0]), action(a[1]))); }},
        {"send",
         [&](auto& a) {
             const auto reply =
                 host->makeObject(AppleScriptProtocol::className)->send(a[0], {a.begin() + 1, a.end()});
             return shown(reply.delivered) + " " + shown(reply.text) + " " + reply.error;
         }},
        {OPERATION(getDefaultAccount)},
        {OPERATION(getSignature, a[0])},
        {OPERATION(applySignaturesFor, a[0])},
        {OPERATION(applyDefaultNewSignatureFor, a[0])},
        {OPERATION(applyDefaultReplySignatureFor, a[0])},
        {OPERATION(applyNoneSignaturesFor, a[0])},
        {OPERATION(applyNoneDefaultNewSignatureFor, a[0])},
        {OPERATION(applyNoneDefaultReplySignatureFor, a[0])},
        {OPERATION(deleteSignatures)},
        {OPERATION(deleteSignature, a[0])},
        {OPERATION(createSignature, a[0], a[1])},
        {OPERATION(getVersion)},
        {OPERATION(getSignatureNames)},
    };
    expectTranscript("objc/messages", [&](const std::string& word, const std::string& rest) {
        Platform::install(ports);
        std::string answer = steps.at(word)(caseArguments(rest));
        // What the stand-in received since the last case, one line per message or released object.
        // Asked without the host, which would load the bundle's scripts.
        if (Class record = NSClassFromString(@"ScriptRecord")) {
            answer +=
                "; recorded " + foundation::utf8([record performSelector:NSSelectorFromString(@"take")]);
        }
        for (const auto& line : logLines()) {
            answer += "; logged " + line;
        }
        clearLog();
        return text::replaceAll(text::replaceAll(answer, root().string(), "<root>"), "\n", "\\n");
    });
    OutlookHandler::defaultAccount.reset();

    // Accessibility, host facts, defaults and the bundle.
    AutoreleasePool pool;
    auto accessibility = MacAccessibility::Create();
    auto hostInfo = MacHostInfo::Create();
    auto defaults = MacUserDefaults::Create();
    ASSERT_TRUE(accessibility && hostInfo && defaults);
    EXPECT_FALSE(accessibility->isTrusted(false)); // the shim trusts exactly when asked to prompt
    EXPECT_TRUE(accessibility->isTrusted(true));
    int calls = 0;
    const auto token = accessibility->addObserver([&calls] { ++calls; });
    NSString* name = [NSString stringWithUTF8String:Accessibility::notificationName];
    [[NSNotificationCenter defaultCenter] postNotificationName:name object:nil];
    accessibility->removeObserver(token);
    [[NSNotificationCenter defaultCenter] postNotificationName:name object:nil];
    EXPECT_EQ(calls, 1);

    EXPECT_EQ(hostInfo->operatingSystemVersion(),
              [[[NSProcessInfo processInfo] operatingSystemVersionString] UTF8String]);
    EXPECT_FALSE(hostInfo->loginName().empty());
    char hostName[256] = {};
    ASSERT_EQ(gethostname(hostName, sizeof hostName - 1), 0);
    EXPECT_EQ(hostInfo->computerName(), std::optional<std::string>(hostName));

    defaults->setString("UserEmailAddress", "user@example.com");
    defaults->setStringArray("additionalSignatures", {"a", "b"});
    EXPECT_EQ(defaults->string("UserEmailAddress"), "user@example.com");
    EXPECT_EQ(defaults->stringArray("additionalSignatures"), (Lines{"a", "b"}));
    EXPECT_EQ(defaults->stringArray("UserEmailAddress"), std::nullopt);
    EXPECT_EQ(defaults->string("additionalSignatures"), std::nullopt);

    // Forced values with their types (the shim forces the argument domain's), the others not at all.
    using Type = PreferenceValue::Type;
    NSUserDefaults* standard = [NSUserDefaults standardUserDefaults];
    [standard removeVolatileDomainForName:NSArgumentDomain];
    [standard
        setVolatileDomain:[NSDictionary
                              dictionaryWithObjectsAndKeys:@"managed.example.com", @"SignatureServerAddress",
                                                           [NSNumber numberWithInt:7100],
                                                           @"SignatureServerPort",
                                                           [NSNumber numberWithBool:NO], @"ShowExitMenu",
                                                           [NSNumber numberWithDouble:1.5],
                                                           @"UpdateFrequency", [NSArray array], @"LDAPServer",
                                                           nil]
                  forName:NSArgumentDomain];
    const auto managed = MacManagedPreferences::Create();
    EXPECT_EQ(managed->forced("SignatureServerAddress"),
              (PreferenceValue{Type::text, "managed.example.com"}));
    EXPECT_EQ(managed->forced("SignatureServerPort"), (PreferenceValue{Type::integer, "7100"}));
    EXPECT_EQ(managed->forced("ShowExitMenu"), (PreferenceValue{Type::boolean, "false"}));
    EXPECT_EQ(managed->forced("UpdateFrequency"), (PreferenceValue{Type::real, "1.5"}));
    EXPECT_EQ(managed->forced("LDAPServer"), (PreferenceValue{Type::other, "array"}));
    EXPECT_FALSE(managed->isForced("UserEmailAddress")); // the user's own value is no forced one
    [standard removeVolatileDomainForName:NSArgumentDomain];

    // The login item's program: the executable itself, whatever argv[0] said.
    EXPECT_EQ(MacBundle::Create()->info().executablePath, std::filesystem::read_symlink("/proc/self/exe"));
}

} // namespace
} // namespace varnoth::test
