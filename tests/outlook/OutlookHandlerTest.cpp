#include "outlook/OutlookHandler.h"
#include "outlook/RecordingScriptHost.h"
#include "outlook/SignatureFormMemory.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"

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

std::string times(const std::string& text, int count) {
    return count == 0 ? "" : text + times(text, count - 1);
}

class OutlookHandlerTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        auto ports = Platform::ports();
        ports.scriptHost = &script;
        Platform::install(ports);
    }
    // A handler whose construction has already happened, with its lines and messages dropped.
    OutlookHandler readyHandler() {
        OutlookHandler handler;
        forget();
        return handler;
    }
    void forget() {
        clearLog();
        script.messages.clear();
    }

    RecordingScriptHost script;
};

// No script, empty text, no text and a failed message all count as missing; the next handler asks again.
TEST_F(OutlookHandlerTest, DefaultAccountIsAskedForUntilKnownAndThenKeptForTheProcess) {
    script.scriptAvailable = false;
    OutlookHandler{};
    EXPECT_EQ(script.loads, 1);
    script.scriptAvailable = true;
    script.answer(Selector::getVersion, "");
    script.account = "";
    OutlookHandler{};
    script.replies[std::string(Selector::getVersion)] = ScriptReply::nothing();
    script.fail(Selector::getDefaultAccount);
    OutlookHandler{};
    EXPECT_EQ(logLines(),
              (Lines{noOutlook[0], noOutlook[1], noOutlook[2], noOutlook[3], noOutlook[0], noOutlook[1],
                     noOutlook[2], noOutlook[3], noOutlook[0], noOutlook[1], noOutlook[2], noOutlook[3]}));
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
    forget();
    OutlookHandler{};
    EXPECT_EQ(logLines(), Lines{"Outlook 16.80 is installed"});
    EXPECT_EQ(script.selectors(), Selectors{"getVersion"});
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");
}

// Outlook's default against the server's by canonical equivalence, not compatibility equivalence:
// precomposed and decomposed, the Angstrom sign, marks in either order; long runs of marks (sorted in
// one pass) keep the order of marks of one class; text that is not UTF-8 equals only itself.
TEST_F(OutlookHandlerTest, NeedsUpdateComparesWithOutlooksDefaultByCanonicalEquivalence) {
    const std::vector<std::tuple<std::string, std::string, bool>> cases = {
        {"<p>Jos\u00E9 Garc\u00EDa</p>", "<p>Jose\u0301 Garci\u0301a</p>", true},
        {"<p>Jos\u00E9 Garc\u00EDa</p>", "<p>Jos\u00E9  Garc\u00EDa</p>", false}, // white space
        {"<p>Jos\u00E9</p>", "<p>jos\u00E9</p>", false},                          // case
        {"<p>Regards</p>\n", "<p>Regards</p>\n", true},
        {"<p>Regards</p>\n", "<p>Regards</p>", false}, // no trimming
        {"\u212B", "\u00C5", true},
        {"a\u0323\u0307", "a\u0307\u0323", true},
        {"\u1E69", "s\u0307\u0323", true},
        {"\uAC00", "\u1100\u1161", true},
        {"a" + times("\u0307\u0323", 40), "a" + times("\u0323", 40) + times("\u0307", 40), true},
        {"\xFF\xFE", "\xFF\xFE", true},
        {"\uFB01", "fi", false}, // a ligature is only compatibility-equal
        {"e", "e\u0301", false},
        {std::string("a\0b", 3), "a", false},
        {"\xFF", "\xFE", false},
        {"a\u0300\u0301" + times("\u0323", 40), "a\u0301\u0300" + times("\u0323", 40), false},
    };
    OutlookHandler handler = readyHandler();
    for (const auto& [outlooks, servers, equal] : cases) {
        SCOPED_TRACE(outlooks + " / " + servers);
        EXPECT_EQ(OutlookHandler::canonicallyEqual(servers, outlooks), equal);
        script.signatures[newName] = script.signatures[replyName] = outlooks;
        EXPECT_EQ(handler.defaultNewSignatureNeedsUpdate(servers), !equal);
        EXPECT_EQ(handler.defaultReplySignatureNeedsUpdate(servers), !equal);
        const std::string answer = equal ? "false" : "true";
        EXPECT_EQ(logLines(), (Lines{"Default new email signature needs update: " + answer,
                                     "Default reply forward email signature needs update: " + answer}));
        EXPECT_EQ(script.messages,
                  (std::vector<Message>{{"getSignature:", {newName}}, {"getSignature:", {replyName}}}));
        forget();
    }
    // A default that cannot be read, or no script at all, must be written.
    script.fail(Selector::getSignature);
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Regards</p>\n"));
    script.scriptAvailable = false;
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>Regards</p>\n"));
    EXPECT_EQ(logLines(), Lines(2, "Error: cannot get default Outlook signature"));
}

TEST_F(OutlookHandlerTest, EachOperationSendsItsMessageAndLogsItsLinesOrItsFailure) {
    const std::string html = "<p class=\"x\">'quoted' \u2014 \"twice\"\nsecond line</p>", odd = "a/b \"c\"";
    using Call = std::function<void(OutlookHandler&)>;
    // The call, its message, the lines of its success; the last of them is replaced by the failure.
    const std::vector<std::tuple<Call, Message, Lines, std::string>> cases = {
        {[&](OutlookHandler& h) { h.createDefaultNewSignature(html); },
         {"createSignature:content:", {newName, html}},
         {"Creating default new email signature", "Created default new email signature successfully"},
         "Error: failed to create default new email signature"},
        {[&](OutlookHandler& h) { h.createDefaultReplySignature(html); },
         {"createSignature:content:", {replyName, html}},
         {"Creating default reply forward signature", "Created default reply forward signature"},
         "Error: failed to create default reply forward signature"},
        {[](OutlookHandler& h) { h.deleteDefaultNewSignature(); },
         {"deleteSignature:", {newName}},
         {"Default new email signature deleted"},
         "Error: cannot delete default new email signature"},
        {[](OutlookHandler& h) { h.deleteDefaultReplySignature(); },
         {"deleteSignature:", {replyName}},
         {"Default reply forward email signature deleted"},
         "Error: cannot delete default reply forward email signature"},
        {[&](OutlookHandler& h) { h.createSignature(odd, html); },
         {"createSignature:content:", {odd, html}},
         {"Creating signature " + odd, "Created signature " + odd + " successfully"},
         "Error: failed to create signature " + odd},
        {[](OutlookHandler& h) { h.createSignature("", ""); },
         {"createSignature:content:", {"", ""}},
         {"Creating signature ", "Created signature  successfully"},
         "Error: failed to create signature "},
        {[](OutlookHandler& h) { h.deleteSignature("Old"); },
         {"deleteSignature:", {"Old"}},
         {"Email signature Old deleted"},
         "Error: cannot delete signature Old"},
        {[](OutlookHandler& h) { h.deleteSignatures(); },
         {"deleteSignatures", {}},
         {"Removing signatures", "Email signatures removed successfully"},
         "Error: couldn't remove email signatures"},
    };
    for (const auto& [call, message, succeeded, failure] : cases) {
        SCOPED_TRACE(message.selector + " " + succeeded.back());
        OutlookHandler handler = readyHandler();
        call(handler);
        EXPECT_EQ(logLines(), succeeded);
        EXPECT_EQ(script.messages.at(0), message); // a created default is then read back

        // The message failing on the script's side, or no script at all, is the operation's failure.
        Lines failed = succeeded;
        failed.back() = failure;
        script.fail(message.selector);
        for (const bool scriptAvailable : {true, false}) {
            clearLog();
            script.messages.clear();
            script.scriptAvailable = scriptAvailable;
            call(handler);
            EXPECT_EQ(logLines(), failed);
            EXPECT_EQ(script.messages.size(), scriptAvailable ? 1u : 0u);
        }
        script.failing.clear();
        script.scriptAvailable = true;
    }
}

// One object, messages with the account; `undefined` in a row stands for dontchange too. A failed first
// message does not keep the other default from being tried; without an account or a script nothing is sent.
TEST_F(OutlookHandlerTest, ApplySendsTheMessagesOfItsActionsToOneObjectWithTheAccount) {
    const std::string setNew = "Automation will set new signature",
                      removeNew = "Automation will remove new signature",
                      setReply = "Automation will set reply signature",
                      removeReply = "Automation will remove reply signature";
    const std::string applyNew = "applyDefaultNewSignatureFor:", noneNew = "applyNoneDefaultNewSignatureFor:",
                      applyReply = "applyDefaultReplySignatureFor:",
                      noneReply = "applyNoneDefaultReplySignatureFor:";
    const auto set = Action::change, clear = Action::clear, none = Action::undefined;
    const std::vector<std::tuple<Action, Action, Lines, Selectors>> cases = {
        {set, set, {"Automation will set both signatures"}, {"applySignaturesFor:"}},
        {clear, clear, {"Automation will remove both signatures"}, {"applyNoneSignaturesFor:"}},
        {set, clear, {setNew, removeReply}, {applyNew, noneReply}},
        {clear, set, {removeNew, setReply}, {noneNew, applyReply}},
        {set, none, {setNew}, {applyNew}},
        {clear, none, {removeNew}, {noneNew}},
        {none, set, {setReply}, {applyReply}},
        {none, clear, {removeReply}, {noneReply}},
        {none, none, {}, {}},
    };
    OutlookHandler handler = readyHandler();
    for (const auto& [newRow, replyRow, automation, selectors] : cases) {
        for (const Action other : {Action::undefined, Action::dontchange}) {
            const Action newAction = newRow == none ? other : newRow,
                         replyAction = replyRow == none ? other : replyRow;
            SCOPED_TRACE(testing::Message() << int(newAction) << "/" << int(replyAction));
            forget();
            script.objectsMade = 0;
            EXPECT_TRUE(handler.applyDefaultSignatures(newAction, replyAction));
            Lines expected{"Applying default signature"};
            expected.insert(expected.end(), automation.begin(), automation.end());
            expected.push_back("Applied default signatures successfully");
            EXPECT_EQ(logLines(), expected);
            EXPECT_EQ(script.selectors(), selectors);
            EXPECT_EQ(script.objectsMade, 1);
            for (const auto& message : script.messages) {
                EXPECT_EQ(message.arguments, std::vector<std::string>{"user@example.com"});
            }
        }
    }
    script.fail(noneNew);
    forget();
    EXPECT_FALSE(handler.applyDefaultSignatures(clear, set));
    EXPECT_EQ(script.selectors(), (Selectors{noneNew, applyReply}));
    script.scriptAvailable = false;
    EXPECT_FALSE(handler.applyDefaultSignatures(set, set));
    OutlookHandler::defaultAccount.reset();
    script.scriptAvailable = true;
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::dontchange, Action::dontchange));
    const std::string start = "Applying default signature", failed = "Error: failed to apply signatures";
    EXPECT_EQ(logLines(), (Lines{start, removeNew, setReply, failed, start, failed, start, failed}));
    EXPECT_EQ(script.selectors(), (Selectors{noneNew, applyReply}));
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
