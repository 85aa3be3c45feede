#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"
#include "tests/support/RecordingScriptHost.h"

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using Selectors = std::vector<std::string>;
using Selector = AppleScriptProtocol::Selector;
using Action = SignatureAction;

const std::string newName = "Default New Email Signature";
const std::string replyName = "Default Reply Forward Email Signature";

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

// --- construction, version and default account

TEST_F(OutlookHandlerTest, WithoutAScriptConstructionLogsFourLinesAndEveryOperationFailsCleanly) {
    script.scriptAvailable = false;
    OutlookHandler handler;
    EXPECT_EQ(logLines(), (Lines{"Error: cannot get Outlook version", "Error: Cannot get Outlook version",
                                 "Getting default Outlook account name",
                                 "Error: cannot get default Outlook account name"}));
    EXPECT_FALSE(OutlookHandler::defaultAccount);
    EXPECT_EQ(script.loads, 1);

    clearLog();
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("x"));
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("x"));
    EXPECT_FALSE(handler.createDefaultNewSignature("x"));
    EXPECT_FALSE(handler.createDefaultReplySignature("x"));
    handler.deleteDefaultNewSignature();
    handler.deleteDefaultReplySignature();
    EXPECT_FALSE(handler.createSignature("Team", "x"));
    handler.deleteSignature("Team");
    handler.deleteSignatures();
    OutlookHandler::defaultAccount = "user@example.com";
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::change, Action::change));
    EXPECT_EQ(
        logLines(),
        (Lines{"Error: cannot get default Outlook signature", "Error: cannot get default Outlook signature",
               "Creating default new email signature", "Error: failed to create default new email signature",
               "Creating default reply forward signature",
               "Error: failed to create default reply forward signature",
               "Error: cannot delete default new email signature",
               "Error: cannot delete default reply forward email signature", "Creating signature Team",
               "Error: failed to create signature Team", "Error: cannot delete signature Team",
               "Removing signatures", "Error: couldn't remove email signatures", "Applying default signature",
               "Error: failed to apply signatures"}));
    EXPECT_TRUE(script.messages.empty());
}

TEST_F(OutlookHandlerTest, VersionLineAndTheDefaultAccountLearnedOncePerProcess) {
    OutlookHandler first;
    EXPECT_EQ(logLines(), (Lines{"Outlook 16.80 is installed", "Getting default Outlook account name",
                                 "Successfully got default Outlook account name: user@example.com"}));
    EXPECT_EQ(script.selectors(), (Selectors{"getVersion", "getDefaultAccount"}));
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");

    // A later change in Outlook is not seen: the first account stays for the life of the process.
    script.account = "other@example.com";
    clearLog();
    script.messages.clear();
    OutlookHandler second;
    EXPECT_EQ(logLines(), Lines{"Outlook 16.80 is installed"});
    EXPECT_EQ(script.selectors(), Selectors{"getVersion"});
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");
    EXPECT_EQ(script.loads, 2);
}

TEST_F(OutlookHandlerTest, EmptyOrFailedAnswersCountAsMissing) {
    script.answer(Selector::getVersion, "");
    script.account = "";
    OutlookHandler first;
    EXPECT_EQ(logLines(), (Lines{"Error: cannot get Outlook version", "Error: Cannot get Outlook version",
                                 "Getting default Outlook account name",
                                 "Error: cannot get default Outlook account name"}));
    EXPECT_FALSE(OutlookHandler::defaultAccount);

    // Absent text reads as empty; a failed message as no answer. The next handler asks again.
    script.replies[std::string(Selector::getVersion)] = ScriptReply::nothing();
    script.fail(Selector::getDefaultAccount);
    clearLog();
    OutlookHandler second;
    EXPECT_EQ(logLines(), (Lines{"Error: cannot get Outlook version", "Error: Cannot get Outlook version",
                                 "Getting default Outlook account name",
                                 "Error: cannot get default Outlook account name"}));

    script.replies.clear();
    script.failing.clear();
    script.account = "late@example.com";
    OutlookHandler third;
    EXPECT_EQ(OutlookHandler::defaultAccount, "late@example.com");
    EXPECT_EQ(third.getVersion(), "16.80");
}

// --- needs-update comparison

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
    EXPECT_EQ(logLines(), (Lines{"Default new email signature needs update: false",
                                 "Default new email signature needs update: false",
                                 "Default new email signature needs update: true",
                                 "Default new email signature needs update: true",
                                 "Default reply forward email signature needs update: false",
                                 "Default reply forward email signature needs update: true"}));
    EXPECT_EQ(script.messages.front(), (RecordingScriptHost::Message{"getSignature:", {newName}}));
    EXPECT_EQ(script.messages.back(), (RecordingScriptHost::Message{"getSignature:", {replyName}}));

    // A default that cannot be read must be written.
    script.fail(Selector::getSignature);
    clearLog();
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9 Garc\u00EDa</p>"));
    EXPECT_EQ(logLines(), Lines{"Error: cannot get default Outlook signature"});
}

TEST_F(OutlookHandlerTest, CanonicalEquivalenceIsNotCompatibilityEquivalence) {
    EXPECT_TRUE(OutlookHandler::canonicallyEqual("\u00E9", "e\u0301"));
    EXPECT_TRUE(OutlookHandler::canonicallyEqual("\u212B", "\u00C5"));               // Angstrom sign
    EXPECT_TRUE(OutlookHandler::canonicallyEqual("a\u0323\u0307", "a\u0307\u0323")); // mark order
    EXPECT_FALSE(OutlookHandler::canonicallyEqual("\uFB01", "fi"));                  // ligature
    EXPECT_FALSE(OutlookHandler::canonicallyEqual("e", "e\u0301"));
    EXPECT_FALSE(OutlookHandler::canonicallyEqual(std::string("a\0b", 3), "a"));
    // Text that is not UTF-8 is only equal to itself.
    EXPECT_TRUE(OutlookHandler::canonicallyEqual("\xFF\xFE", "\xFF\xFE"));
    EXPECT_FALSE(OutlookHandler::canonicallyEqual("\xFF", "\xFE"));
}

// --- create and delete

struct OperationCase {
    const char* title;
    std::function<void(OutlookHandler&)> call;
    RecordingScriptHost::Message message;
    Lines succeeded;
    Lines failed;
};

TEST_F(OutlookHandlerTest, EachOperationSendsItsMessageAndLogsItsLinesOrItsFailure) {
    const std::string html = "<p class=\"x\">'quoted' \u2014 \"twice\"\nsecond line</p>";
    const std::vector<OperationCase> cases = {
        {"createDefaultNewSignature",
         [&](OutlookHandler& h) { h.createDefaultNewSignature(html); },
         {"createSignature:content:", {newName, html}},
         {"Creating default new email signature", "Created default new email signature successfully"},
         {"Creating default new email signature", "Error: failed to create default new email signature"}},
        {"createDefaultReplySignature",
         [&](OutlookHandler& h) { h.createDefaultReplySignature(html); },
         {"createSignature:content:", {replyName, html}},
         {"Creating default reply forward signature", "Created default reply forward signature"},
         {"Creating default reply forward signature",
          "Error: failed to create default reply forward signature"}},
        {"deleteDefaultNewSignature",
         [](OutlookHandler& h) { h.deleteDefaultNewSignature(); },
         {"deleteSignature:", {newName}},
         {"Default new email signature deleted"},
         {"Error: cannot delete default new email signature"}},
        {"deleteDefaultReplySignature",
         [](OutlookHandler& h) { h.deleteDefaultReplySignature(); },
         {"deleteSignature:", {replyName}},
         {"Default reply forward email signature deleted"},
         {"Error: cannot delete default reply forward email signature"}},
        {"createSignature",
         [&](OutlookHandler& h) { h.createSignature("a/b \"c\"", html); },
         {"createSignature:content:", {"a/b \"c\"", html}},
         {"Creating signature a/b \"c\"", "Created signature a/b \"c\" successfully"},
         {"Creating signature a/b \"c\"", "Error: failed to create signature a/b \"c\""}},
        {"createSignature with empty texts",
         [](OutlookHandler& h) { h.createSignature("", ""); },
         {"createSignature:content:", {"", ""}},
         {"Creating signature ", "Created signature  successfully"},
         {"Creating signature ", "Error: failed to create signature "}},
        {"deleteSignature",
         [](OutlookHandler& h) { h.deleteSignature("Old"); },
         {"deleteSignature:", {"Old"}},
         {"Email signature Old deleted"},
         {"Error: cannot delete signature Old"}},
        {"deleteSignatures",
         [](OutlookHandler& h) { h.deleteSignatures(); },
         {"deleteSignatures", {}},
         {"Removing signatures", "Email signatures removed successfully"},
         {"Removing signatures", "Error: couldn't remove email signatures"}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.title);
        OutlookHandler handler = readyHandler();
        test.call(handler);
        EXPECT_EQ(logLines(), test.succeeded);
        EXPECT_EQ(script.messages, std::vector<RecordingScriptHost::Message>{test.message});

        // The same message failing on the script's side is the operation's failure.
        clearLog();
        script.messages.clear();
        script.fail(test.message.selector);
        test.call(handler);
        EXPECT_EQ(logLines(), test.failed);
        EXPECT_EQ(script.messages, std::vector<RecordingScriptHost::Message>{test.message});
        script.failing.clear();
    }
}

TEST_F(OutlookHandlerTest, CreateReportsDeliveryAndTheSignatureReadsBackTheSame) {
    OutlookHandler handler = readyHandler();
    EXPECT_TRUE(handler.createDefaultNewSignature("<b>new</b>"));
    EXPECT_TRUE(handler.createDefaultReplySignature("<b>reply</b>"));
    EXPECT_TRUE(handler.createSignature("Extra", "<i>extra</i>"));
    EXPECT_FALSE(handler.defaultNewSignatureNeedsUpdate("<b>new</b>"));
    EXPECT_FALSE(handler.defaultReplySignatureNeedsUpdate("<b>reply</b>"));
    script.fail(Selector::createSignature);
    EXPECT_FALSE(handler.createDefaultNewSignature("<b>newer</b>"));
    EXPECT_FALSE(handler.createSignature("Extra", "<i>newer</i>"));
    EXPECT_EQ(script.signatures["Extra"], "<i>extra</i>");
}

// --- applying the defaults

struct ApplyCase {
    Action newAction, replyAction;
    Lines automation;
    Selectors messages;
};

TEST_F(OutlookHandlerTest, ApplySendsTheMessagesOfItsActionsToOneObjectWithTheAccount) {
    const Lines setBoth{"Automation will set both signatures"},
        removeBoth{"Automation will remove both signatures"};
    const std::string setNew = "Automation will set new signature",
                      removeNew = "Automation will remove new signature",
                      setReply = "Automation will set reply signature",
                      removeReply = "Automation will remove reply signature";
    const std::vector<ApplyCase> cases = {
        {Action::change, Action::change, setBoth, {"applySignaturesFor:"}},
        {Action::clear, Action::clear, removeBoth, {"applyNoneSignaturesFor:"}},
        {Action::change,
         Action::clear,
         {setNew, removeReply},
         {"applyDefaultNewSignatureFor:", "applyNoneDefaultReplySignatureFor:"}},
        {Action::clear,
         Action::change,
         {removeNew, setReply},
         {"applyNoneDefaultNewSignatureFor:", "applyDefaultReplySignatureFor:"}},
        {Action::change, Action::undefined, {setNew}, {"applyDefaultNewSignatureFor:"}},
        {Action::change, Action::dontchange, {setNew}, {"applyDefaultNewSignatureFor:"}},
        {Action::clear, Action::undefined, {removeNew}, {"applyNoneDefaultNewSignatureFor:"}},
        {Action::clear, Action::dontchange, {removeNew}, {"applyNoneDefaultNewSignatureFor:"}},
        {Action::undefined, Action::change, {setReply}, {"applyDefaultReplySignatureFor:"}},
        {Action::dontchange, Action::change, {setReply}, {"applyDefaultReplySignatureFor:"}},
        {Action::undefined, Action::clear, {removeReply}, {"applyNoneDefaultReplySignatureFor:"}},
        {Action::dontchange, Action::clear, {removeReply}, {"applyNoneDefaultReplySignatureFor:"}},
        {Action::undefined, Action::undefined, {}, {}},
        {Action::undefined, Action::dontchange, {}, {}},
        {Action::dontchange, Action::undefined, {}, {}},
        {Action::dontchange, Action::dontchange, {}, {}},
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

TEST_F(OutlookHandlerTest, ApplyFailsWithoutAnAccountOrAScriptAndStopsAtAFailedMessage) {
    script.account = "";
    OutlookHandler handler = readyHandler();
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::dontchange, Action::dontchange));
    EXPECT_EQ(logLines(), (Lines{"Applying default signature", "Error: failed to apply signatures"}));
    EXPECT_TRUE(script.messages.empty());

    OutlookHandler::defaultAccount = "user@example.com";
    script.scriptAvailable = false;
    clearLog();
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::change, Action::change));
    EXPECT_EQ(logLines(), (Lines{"Applying default signature", "Error: failed to apply signatures"}));

    // Outlook failing on the first of two messages: the second is not attempted.
    script.scriptAvailable = true;
    script.fail(Selector::applyNoneDefaultNewSignatureFor);
    clearLog();
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::clear, Action::change));
    EXPECT_EQ(logLines(), (Lines{"Applying default signature", "Automation will remove new signature",
                                 "Error: failed to apply signatures"}));
    EXPECT_EQ(script.selectors(), Selectors{"applyNoneDefaultNewSignatureFor:"});
}

} // namespace
} // namespace varnoth::test
