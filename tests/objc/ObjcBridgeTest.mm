#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/mac/AppleScriptObjCHost.h"
#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/MacAccessibility.h"
#include "platform/mac/MacBundle.h"
#include "platform/mac/MacHostInfo.h"
#include "platform/mac/MacUserDefaults.h"
#include "tests/support/AgentTest.h"

#import <Foundation/Foundation.h>

#include <functional>

// GNUstep's runtime keeps what it allocates for the life of the process and its frames carry no frame
// pointers, so a sanitizer build's leak report cannot tell its allocations from the bridge's.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libobjc.so\nleak:libgnustep-base.so\n";
}

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using Action = SignatureAction;

// The bridge against tests/objc/OutlookScriptObj.m, loaded from its bundle as the Mac loads the script.
class ObjcBridgeTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        ASSERT_TRUE(host);
        auto ports = Platform::ports();
        ports.scriptHost = host.get();
        Platform::install(ports);
    }
    void TearDown() override {
        OutlookHandler::defaultAccount.reset();
        AgentTest::TearDown();
    }
    // What the stand-in received since the last look, one line per message or released object.
    std::string record() { return host->makeObject("ScriptRecord")->send("take", {}).text.value_or("?"); }

    std::unique_ptr<AppleScriptObjCHost> host = AppleScriptObjCHost::Create(VARNOTH_TEST_SCRIPT_BUNDLE);
};

// First in the file: no test has loaded the stand-in's bundle yet.
TEST_F(ObjcBridgeTest, MissingClassFailsEveryOperationWithItsLogLine) {
    auto empty = AppleScriptObjCHost::Create(root());
    ASSERT_TRUE(empty);
    auto ports = Platform::ports();
    ports.scriptHost = empty.get();
    Platform::install(ports);
    OutlookHandler handler;
    EXPECT_FALSE(handler.createSignature("n", "c"));
    EXPECT_EQ(logLines(),
              (Lines{"Error: cannot get Outlook version", "Error: Cannot get Outlook version",
                     "Getting default Outlook account name", "Error: cannot get default Outlook account name",
                     "Creating signature n", "Error: failed to create signature n"}));
    host->loadScripts();
    EXPECT_TRUE(host->makeObject(AppleScriptProtocol::className));
    EXPECT_FALSE(host->makeObject("NoSuchScriptObj"));
}

TEST_F(ObjcBridgeTest, EachOperationSendsItsSelectorWithItsArgumentsToAFreshObject) {
    host->loadScripts();
    using Call = std::function<std::optional<std::string>(AppleScriptProtocol&)>;
    const std::string name = "Grüße \"Ö\"", account = "user@example.com";
// Operations without a result report only delivery: "" stands for delivered.
#define SENT(call) [&](auto& s) { return s.call ? std::optional<std::string>("") : std::nullopt; }
    const std::vector<std::pair<Call, std::string>> table = {
        {[](auto& s) { return s.getDefaultAccount(); }, "getDefaultAccount"},
        {[&](auto& s) { return s.getSignature(name); }, "getSignature: " + name},
        {SENT(applySignaturesFor(account)), "applySignaturesFor: " + account},
        {SENT(applyDefaultNewSignatureFor(account)), "applyDefaultNewSignatureFor: " + account},
        {SENT(applyDefaultReplySignatureFor(account)), "applyDefaultReplySignatureFor: " + account},
        {SENT(applyNoneSignaturesFor(account)), "applyNoneSignaturesFor: " + account},
        {SENT(applyNoneDefaultNewSignatureFor(account)), "applyNoneDefaultNewSignatureFor: " + account},
        {SENT(applyNoneDefaultReplySignatureFor(account)), "applyNoneDefaultReplySignatureFor: " + account},
        {SENT(deleteSignatures()), "deleteSignatures"},
        {SENT(deleteSignature(name)), "deleteSignature: " + name},
        {SENT(createSignature(name, "<p>\n</p>")), "createSignature:content: " + name + " <p>\n</p>"},
        {[](auto& s) { return s.getVersion(); }, "getVersion"},
    };
#undef SENT
    for (const auto& [call, line] : table) {
        std::optional<std::string> answer;
        {
            AppleScriptProtocol script(host->makeObject(AppleScriptProtocol::className));
            answer = call(script);
        }
        EXPECT_EQ(answer, line.rfind("get", 0) == 0 ? line : "") << line;
        EXPECT_EQ(record(), line + "\nreleased after 1");
    }
}

TEST_F(ObjcBridgeTest, FailingMessagesFailOnlyTheirOperation) {
    host->loadScripts();
    auto object = host->makeObject(AppleScriptProtocol::className);
    const ScriptReply raised = object->send("getSignature:", {"raise"});
    EXPECT_FALSE(raised.delivered);
    EXPECT_EQ(raised.error, "OSAScriptErrorNumber: Outlook got an error");
    EXPECT_EQ(object->send("noSuchOperation:", {"x"}).error, "the object does not answer noSuchOperation:");
    EXPECT_FALSE(object->send("getSignature:", {}).delivered);
    EXPECT_FALSE(object->send("getSignature:", {"\xff"}).delivered);
    const ScriptReply nothing = object->send("getSignature:", {"nil"});
    EXPECT_TRUE(nothing.delivered);
    EXPECT_EQ(nothing.text, std::nullopt);
    object.reset();
    EXPECT_EQ(record(), "getSignature: nil\nreleased after 1");

    OutlookHandler handler;
    clearLog();
    EXPECT_FALSE(handler.createSignature("raise", "c"));
    EXPECT_EQ(logLines(), (Lines{"Creating signature raise", "Error: failed to create signature raise"}));
}

TEST_F(ObjcBridgeTest, MixedApplySendsBothMessagesToOneObject) {
    OutlookHandler handler;
    EXPECT_EQ(OutlookHandler::defaultAccount, "getDefaultAccount");
    record();
    const std::string account = " getDefaultAccount";
    EXPECT_TRUE(handler.applyDefaultSignatures(Action::change, Action::clear));
    EXPECT_EQ(record(), "applyDefaultNewSignatureFor:" + account +
                            "\napplyNoneDefaultReplySignatureFor:" + account + "\nreleased after 2");
    EXPECT_TRUE(handler.applyDefaultSignatures(Action::clear, Action::change));
    EXPECT_EQ(record(), "applyNoneDefaultNewSignatureFor:" + account +
                            "\napplyDefaultReplySignatureFor:" + account + "\nreleased after 2");
}

TEST_F(ObjcBridgeTest, AccessibilityHostFactsDefaultsAndBundle) {
    AutoreleasePool pool;
    auto accessibility = MacAccessibility::Create();
    ASSERT_TRUE(accessibility);
    EXPECT_FALSE(accessibility->isTrusted(false)); // the shim trusts exactly when asked to prompt
    EXPECT_TRUE(accessibility->isTrusted(true));
    int calls = 0;
    const auto token = accessibility->addObserver([&calls] { ++calls; });
    NSString* name = [NSString stringWithUTF8String:Accessibility::notificationName];
    [[NSNotificationCenter defaultCenter] postNotificationName:name object:nil];
    accessibility->removeObserver(token);
    [[NSNotificationCenter defaultCenter] postNotificationName:name object:nil];
    EXPECT_EQ(calls, 1);

    auto hostInfo = MacHostInfo::Create();
    ASSERT_TRUE(hostInfo);
    EXPECT_EQ(hostInfo->operatingSystemVersion(),
              [[[NSProcessInfo processInfo] operatingSystemVersionString] UTF8String]);
    EXPECT_FALSE(hostInfo->loginName().empty());

    auto defaults = MacUserDefaults::Create();
    ASSERT_TRUE(defaults);
    defaults->setString("UserEmailAddress", "user@example.com");
    defaults->setStringArray("additionalSignatures", {"a", "b"});
    EXPECT_EQ(defaults->string("UserEmailAddress"), "user@example.com");
    EXPECT_EQ(defaults->stringArray("additionalSignatures"), (Lines{"a", "b"}));
    EXPECT_EQ(defaults->stringArray("UserEmailAddress"), std::nullopt);
    EXPECT_EQ(defaults->string("additionalSignatures"), std::nullopt);

    // The login item's program: the executable itself, whatever argv[0] said.
    EXPECT_EQ(MacBundle::Create()->info().executablePath, std::filesystem::read_symlink("/proc/self/exe"));
}

} // namespace
} // namespace varnoth::test
