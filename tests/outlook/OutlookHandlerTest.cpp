#include "outlook/OutlookHandler.h"
#include "outlook/SignatureFormMemory.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"
#include "tests/support/RecordingScriptHost.h"

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using Selectors = std::vector<std::string>;
using Selector = AppleScriptProtocol::Selector;
using Message = RecordingScriptHost::Message;
using Action = SignatureAction;

const std::string newName = "Default New Email Signature";
const std::string replyName = "Default Reply Forward Email Signature";
const Lines noOutlook{"Error: cannot get Outlook version", "Error: Cannot get Outlook version",
                      "Getting default Outlook account name",
                      "Error: cannot get default Outlook account name"};

class OutlookHandlerTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        auto ports = Platform::ports();
        ports.scriptHost = &script;
        Platform::install(ports);
    }
    void TearDown() override {
        OutlookHandler::defaultAccount.reset();
        AgentTest::TearDown();
    }
    // A handler whose construction has already happened, with its lines and messages dropped.
    OutlookHandler readyHandler() {
        OutlookHandler handler;
        clearLog();
        script.messages.clear();
        return handler;
    }

    RecordingScriptHost script;
};

TEST_F(OutlookHandlerTest, WithoutAScriptConstructionLogsFourLinesAndTheHandlerFailsCleanly) {
    script.scriptAvailable = false;
    OutlookHandler handler;
    EXPECT_EQ(logLines(), noOutlook);
    EXPECT_FALSE(OutlookHandler::defaultAccount);
    EXPECT_EQ(script.loads, 1);

    clearLog();
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("x"));
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("x"));
    OutlookHandler::defaultAccount = "user@example.com";
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::change, Action::change));
    EXPECT_EQ(logLines(), (Lines{"Error: cannot get default Outlook signature",
                                 "Error: cannot get default Outlook signature", "Applying default signature",
                                 "Error: failed to apply signatures"}));
    EXPECT_TRUE(script.messages.empty());
}

TEST_F(OutlookHandlerTest, DefaultAccountIsAskedForUntilKnownAndThenKeptForTheProcess) {
    // Empty text, no text and a failed message all count as missing; the next handler asks again.
    script.answer(Selector::getVersion, "");
    script.account = "";
    OutlookHandler{};
    script.replies[std::string(Selector::getVersion)] = ScriptReply::nothing();
    script.fail(Selector::getDefaultAccount);
    OutlookHandler{};
    Lines twice = noOutlook;
    twice.insert(twice.end(), noOutlook.begin(), noOutlook.end());
    EXPECT_EQ(logLines(), twice);
    EXPECT_FALSE(OutlookHandler::defaultAccount);

    script.replies.clear();
    script.failing.clear();
    script.account = "user@example.com";
    clearLog();
    OutlookHandler{};
    EXPECT_EQ(logLines(), (Lines{"Outlook 16.80 is installed", "Getting default Outlook account name",
                                 "Successfully got default Outlook account name: user@example.com"}));

    // A later change in Outlook is not seen: the first account stays for the life of the process.
    script.account = "other@example.com";
    script.messages.clear();
    clearLog();
    OutlookHandler{};
    EXPECT_EQ(logLines(), Lines{"Outlook 16.80 is installed"});
    EXPECT_EQ(script.selectors(), Selectors{"getVersion"});
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");
}

TEST_F(OutlookHandlerTest, NeedsUpdateComparesWithOutlooksDefaultByCanonicalEquivalence) {
    OutlookHandler handler = readyHandler();
    script.signatures[newName] = "<p>Jos\u00E9 Garc\u00EDa</p>";
    script.signatures[replyName] = "<p>Regards</p>\n";
    EXPECT_FALSE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9 Garc\u00EDa</p>"));
    EXPECT_FALSE(handler.defaultNewSignatureNeedsUpdate("<p>Jose\u0301 Garci\u0301a</p>")); // decomposed
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9  Garc\u00EDa</p>"));   // white space
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>jos\u00E9 garc\u00EDa</p>"));    // case
    EXPECT_FALSE(handler.defaultReplySignatureNeedsUpdate("<p>Regards</p>\n"));
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>Regards</p>")); // no trimming
    const std::string line = "Default new email signature needs update: ";
    const std::string reply = "Default reply forward email signature needs update: ";
    EXPECT_EQ(logLines(), (Lines{line + "false", line + "false", line + "true", line + "true",
                                 reply + "false", reply + "true"}));
    EXPECT_EQ(script.messages.front(), (Message{"getSignature:", {newName}}));
    EXPECT_EQ(script.messages.back(), (Message{"getSignature:", {replyName}}));

    // A default that cannot be read must be written.
    script.fail(Selector::getSignature);
    clearLog();
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9 Garc\u00EDa</p>"));
    EXPECT_EQ(logLines(), Lines{"Error: cannot get default Outlook signature"});
}

TEST_F(OutlookHandlerTest, CanonicalEquivalenceIsNotCompatibilityEquivalence) {
    using Pairs = std::vector<std::pair<std::string, std::string>>;
    // Precomposed and decomposed, the Angstrom sign, marks in either order; text that is not UTF-8
    // equals only itself.
    // Long runs of marks (sorted in one pass) keep the order of marks of one class.
    std::string mixed = "a", grouped = "a", swapped = "a\u0300\u0301";
    for (int i = 0; i < 40; ++i) {
        mixed += "\u0307\u0323";
        grouped += "\u0323";
        swapped += "\u0323";
    }
    for (int i = 0; i < 40; ++i) {
        grouped += "\u0307";
    }
    for (const auto& [a, b] : Pairs{{"\u00E9", "e\u0301"},
                                    {"\u212B", "\u00C5"},
                                    {"a\u0323\u0307", "a\u0307\u0323"},
                                    {"\u1E69", "s\u0307\u0323"},
                                    {"\uAC00", "\u1100\u1161"},
                                    {mixed, grouped},
                                    {"\xFF\xFE", "\xFF\xFE"}}) {
        EXPECT_TRUE(OutlookHandler::canonicallyEqual(a, b)) << a << " / " << b;
    }
    // A ligature (only compatibility-equal), a lone base letter, a NUL tail, other bytes.
    for (const auto& [a, b] : Pairs{{"\uFB01", "fi"},
                                    {"e", "e\u0301"},
                                    {std::string("a\0b", 3), "a"},
                                    {"\xFF", "\xFE"},
                                    {swapped, "a\u0301\u0300" + swapped.substr(5)}}) {
        EXPECT_FALSE(OutlookHandler::canonicallyEqual(a, b)) << a << " / " << b;
    }
}

struct OperationCase {
    const char* title;
    std::function<void(OutlookHandler&)> call;
    Message message;
    Lines succeeded; // the last line is replaced by failure when the operation fails
    std::string failure;
};

TEST_F(OutlookHandlerTest, EachOperationSendsItsMessageAndLogsItsLinesOrItsFailure) {
    const std::string html = "<p class=\"x\">'quoted' \u2014 \"twice\"\nsecond line</p>";
    const std::vector<OperationCase> cases = {
        {"createDefaultNewSignature", [&](OutlookHandler& h) { h.createDefaultNewSignature(html); },
         Message{"createSignature:content:", {newName, html}},
         Lines{"Creating default new email signature", "Created default new email signature successfully"},
         "Error: failed to create default new email signature"},
        {"createDefaultReplySignature", [&](OutlookHandler& h) { h.createDefaultReplySignature(html); },
         Message{"createSignature:content:", {replyName, html}},
         Lines{"Creating default reply forward signature", "Created default reply forward signature"},
         "Error: failed to create default reply forward signature"},
        {"deleteDefaultNewSignature", [](OutlookHandler& h) { h.deleteDefaultNewSignature(); },
         Message{"deleteSignature:", {newName}}, Lines{"Default new email signature deleted"},
         "Error: cannot delete default new email signature"},
        {"deleteDefaultReplySignature", [](OutlookHandler& h) { h.deleteDefaultReplySignature(); },
         Message{"deleteSignature:", {replyName}}, Lines{"Default reply forward email signature deleted"},
         "Error: cannot delete default reply forward email signature"},
        {"createSignature", [&](OutlookHandler& h) { h.createSignature("a/b \"c\"", html); },
         Message{"createSignature:content:", {"a/b \"c\"", html}},
         Lines{"Creating signature a/b \"c\"", "Created signature a/b \"c\" successfully"},
         "Error: failed to create signature a/b \"c\""},
        {"createSignature with empty texts", [](OutlookHandler& h) { h.createSignature("", ""); },
         Message{"createSignature:content:", {"", ""}},
         Lines{"Creating signature ", "Created signature  successfully"},
         "Error: failed to create signature "},
        {"deleteSignature", [](OutlookHandler& h) { h.deleteSignature("Old"); },
         Message{"deleteSignature:", {"Old"}}, Lines{"Email signature Old deleted"},
         "Error: cannot delete signature Old"},
        {"deleteSignatures", [](OutlookHandler& h) { h.deleteSignatures(); }, Message{"deleteSignatures", {}},
         Lines{"Removing signatures", "Email signatures removed successfully"},
         "Error: couldn't remove email signatures"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.title);
        OutlookHandler handler = readyHandler();
        test.call(handler);
        EXPECT_EQ(logLines(), test.succeeded);
        EXPECT_EQ(script.messages.at(0), test.message); // a created default is then read back

        // The message failing on the script's side, or no script at all, is the operation's failure.
        Lines failed = test.succeeded;
        failed.back() = test.failure;
        for (const bool scriptAvailable : {true, false}) {
            clearLog();
            script.messages.clear();
            script.fail(test.message.selector);
            script.scriptAvailable = scriptAvailable;
            test.call(handler);
            EXPECT_EQ(logLines(), failed);
            EXPECT_EQ(script.messages.size(), scriptAvailable ? 1u : 0u);
        }
        script.failing.clear();
        script.scriptAvailable = true;
    }
}

struct ApplyCase {
    Action newAction, replyAction;
    Lines automation;
    Selectors messages;
};

TEST_F(OutlookHandlerTest, ApplySendsTheMessagesOfItsActionsToOneObjectWithTheAccount) {
    const std::string setNew = "Automation will set new signature",
                      removeNew = "Automation will remove new signature",
                      setReply = "Automation will set reply signature",
                      removeReply = "Automation will remove reply signature";
    const std::string applyNew = "applyDefaultNewSignatureFor:", noneNew = "applyNoneDefaultNewSignatureFor:",
                      applyReply = "applyDefaultReplySignatureFor:",
                      noneReply = "applyNoneDefaultReplySignatureFor:";
    const auto change = Action::change, clear = Action::clear, undefined = Action::undefined,
               keep = Action::dontchange;
    const std::vector<ApplyCase> cases = {
        {change, change, Lines{"Automation will set both signatures"}, Selectors{"applySignaturesFor:"}},
        {clear, clear, Lines{"Automation will remove both signatures"}, Selectors{"applyNoneSignaturesFor:"}},
        {change, clear, Lines{setNew, removeReply}, Selectors{applyNew, noneReply}},
        {clear, change, Lines{removeNew, setReply}, Selectors{noneNew, applyReply}},
        {change, undefined, Lines{setNew}, Selectors{applyNew}},
        {change, keep, Lines{setNew}, Selectors{applyNew}},
        {clear, undefined, Lines{removeNew}, Selectors{noneNew}},
        {clear, keep, Lines{removeNew}, Selectors{noneNew}},
        {undefined, change, Lines{setReply}, Selectors{applyReply}},
        {keep, change, Lines{setReply}, Selectors{applyReply}},
        {undefined, clear, Lines{removeReply}, Selectors{noneReply}},
        {keep, clear, Lines{removeReply}, Selectors{noneReply}},
        {undefined, undefined, Lines{}, Selectors{}},
        {undefined, keep, Lines{}, Selectors{}},
        {keep, undefined, Lines{}, Selectors{}},
        {keep, keep, Lines{}, Selectors{}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(test.newAction) << "/" << static_cast<int>(test.replyAction));
        OutlookHandler handler = readyHandler();
        script.objectsMade = 0;
        EXPECT_TRUE(handler.applyDefaultSignatures(test.newAction, test.replyAction));
        Lines expected{"Applying default signature"};
        expected.insert(expected.end(), test.automation.begin(), test.automation.end());
        expected.push_back("Applied default signatures successfully");
        EXPECT_EQ(logLines(), expected);
        EXPECT_EQ(script.selectors(), test.messages);
        EXPECT_EQ(script.objectsMade, 1);
        for (const auto& message : script.messages) {
            EXPECT_EQ(message.arguments, std::vector<std::string>{"user@example.com"});
        }
    }
}

TEST_F(OutlookHandlerTest, ApplyFailsWithoutAnAccountOrAfterSendingBothMessagesWhenOneFailed) {
    script.account = "";
    OutlookHandler handler = readyHandler();
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::dontchange, Action::dontchange));
    EXPECT_EQ(logLines(), (Lines{"Applying default signature", "Error: failed to apply signatures"}));
    EXPECT_TRUE(script.messages.empty());

    // Outlook failing on the first of two messages: the other default is still tried.
    OutlookHandler::defaultAccount = "user@example.com";
    script.fail(Selector::applyNoneDefaultNewSignatureFor);
    clearLog();
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::clear, Action::change));
    EXPECT_EQ(logLines(),
              (Lines{"Applying default signature", "Automation will remove new signature",
                     "Automation will set reply signature", "Error: failed to apply signatures"}));
    EXPECT_EQ(script.selectors(),
              (Selectors{"applyNoneDefaultNewSignatureFor:", "applyDefaultReplySignatureFor:"}));
}

TEST_F(OutlookHandlerTest, OutlooksOwnFormOfACreatedDefaultReadsAsTheCreatedContentUntilItChanges) {
    script.responder = [&](const Message& message) -> std::optional<ScriptReply> {
        if (message.selector == Selector::createSignature) { // Outlook keeps its own HTML
            script.signatures[message.arguments[0]] = "<html>" + message.arguments[1] + "</html>";
            return ScriptReply::nothing();
        }
        return std::nullopt;
    };
    OutlookHandler handler = readyHandler();
    EXPECT_TRUE(handler.createDefaultReplySignature("<p>A</p>") &&
                handler.createSignature("Other", "<p>A</p>"));
    EXPECT_EQ(defaults.stringArray("outlookSignatureForm." + replyName),
              (std::vector<std::string>{"<p>A</p>", SignatureFormMemory::digest("<html><p>A</p></html>")}));
    EXPECT_FALSE(defaults.contains("outlookSignatureForm.Other")); // only the compared defaults
    EXPECT_FALSE(handler.defaultReplySignatureNeedsUpdate("<p>A</p>"));
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>B</p>")); // changed on the server
    script.signatures[replyName] = "<html><p>A</p> edited</html>";     // changed in Outlook
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>A</p>"));
}

} // namespace
} // namespace varnoth::test
