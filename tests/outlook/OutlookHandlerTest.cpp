#include "outlook/OutlookHandler.h"
#include "outlook/RecordingScriptHost.h"
#include "outlook/SignatureFormMemory.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

using Selector = AppleScriptProtocol::Selector;
using Message = RecordingScriptHost::Message;
using Action = SignatureAction;

const std::string replyName = "Default Reply Forward Email Signature";

std::string times(const std::string& text, int count) {
    return count == 0 ? "" : text + times(text, count - 1);
}

// Each test writes what the handler logged and sent into one transcript, compared with tests/golden/outlook/.
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
        clearLog();
        script.messages.clear();
        script.loads = script.objectsMade = 0;
        return handler;
    }
    // The lines logged, the messages sent (each argument in brackets) and the scripts loaded and objects
    // made since the last look; then they are forgotten.
    void look(const std::string& title) {
        out << "== " << title << "\n" << joinLines(logLines());
        for (const auto& message : script.messages) {
            out << "> " << message.selector;
            for (const auto& argument : message.arguments) {
                out << " [" << argument << "]";
            }
            out << "\n";
        }
        out << "-- loads " << script.loads << ", objects " << script.objectsMade << "\n";
        clearLog();
        script.messages.clear();
        script.loads = script.objectsMade = 0;
    }

    RecordingScriptHost script;
    std::ostringstream out;
};

// No script, empty text, no text and a failed message all count as missing; the next handler asks again.
// Once known, the account is kept for the life of the process, even when Outlook's changes.
TEST_F(OutlookHandlerTest, DefaultAccountIsAskedForUntilKnownAndThenKeptForTheProcess) {
    script.scriptAvailable = false;
    OutlookHandler{};
    look("no script");
    script.scriptAvailable = true;
    script.answer(Selector::getVersion, "");
    script.account = "";
    OutlookHandler{};
    look("empty answers");
    script.replies[std::string(Selector::getVersion)] = ScriptReply::nothing();
    script.fail(Selector::getDefaultAccount);
    OutlookHandler{};
    look("no answer, failed message");
    EXPECT_FALSE(OutlookHandler::defaultAccount);
    script.replies.clear();
    script.failing.clear();
    script.account = "user@example.com";
    OutlookHandler{};
    look("known");
    script.account = "other@example.com";
    OutlookHandler{};
    look("changed in Outlook");
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");
    expectGolden("outlook/default-account", out.str());
}

// Outlook's default against the server's by canonical equivalence, not compatibility equivalence:
// precomposed and decomposed, the Angstrom sign, marks in either order; long runs of marks (sorted in
// one pass) keep the order of marks of one class; text that is not UTF-8 equals only itself. A default
// that cannot be read, or no script at all, must be written.
TEST_F(OutlookHandlerTest, NeedsUpdateComparesWithOutlooksDefaultByCanonicalEquivalence) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<p>Jos\u00E9 Garc\u00EDa</p>", "<p>Jose\u0301 Garci\u0301a</p>"},
        {"<p>Jos\u00E9 Garc\u00EDa</p>", "<p>Jos\u00E9  Garc\u00EDa</p>"}, // white space
        {"<p>Jos\u00E9</p>", "<p>jos\u00E9</p>"},                          // case
        {"<p>Regards</p>\n", "<p>Regards</p>\n"},
        {"<p>Regards</p>\n", "<p>Regards</p>"}, // no trimming
        {"\u212B", "\u00C5"},
        {"a\u0323\u0307", "a\u0307\u0323"},
        {"\u1E69", "s\u0307\u0323"},
        {"\uAC00", "\u1100\u1161"},
        {"a" + times("\u0307\u0323", 40), "a" + times("\u0323", 40) + times("\u0307", 40)},
        {"\xFF\xFE", "\xFF\xFE"},
        {"\uFB01", "fi"}, // a ligature is only compatibility-equal
        {"e", "e\u0301"},
        {std::string("a\0b", 3), "a"},
        {"\xFF", "\xFE"},
        {"a\u0300\u0301" + times("\u0323", 40), "a\u0301\u0300" + times("\u0323", 40)},
    };
    OutlookHandler handler = readyHandler();
    for (std::size_t index = 0; index < cases.size(); ++index) {
        const auto& [outlooks, servers] = cases[index];
        script.signatures[OutlookHandler::newSignatureName] = script.signatures[replyName] = outlooks;
        const bool equal = OutlookHandler::canonicallyEqual(servers, outlooks);
        const bool newUpdate = handler.defaultNewSignatureNeedsUpdate(servers);
        const bool replyUpdate = handler.defaultReplySignatureNeedsUpdate(servers);
        look("case " + std::to_string(index) + ": equal " + std::to_string(equal) + ", new " +
             std::to_string(newUpdate) + ", reply " + std::to_string(replyUpdate));
    }
    script.fail(Selector::getSignature);
    const bool unreadable = handler.defaultNewSignatureNeedsUpdate("<p>Regards</p>\n");
    script.scriptAvailable = false;
    look("unreadable " + std::to_string(unreadable) + ", no script " +
         std::to_string(handler.defaultReplySignatureNeedsUpdate("<p>Regards</p>\n")));
    expectGolden("outlook/needs-update", out.str());
}

// Each operation's message and lines; then the message failing on the script's side, or no script at
// all, as the operation's failure. A created default is then read back.
TEST_F(OutlookHandlerTest, EachOperationSendsItsMessageAndLogsItsLinesOrItsFailure) {
    const std::string html = "<p class=\"x\">'quoted' \u2014 \"twice\"\nsecond line</p>", odd = "a/b \"c\"";
    const std::vector<std::pair<std::string_view, std::function<void(OutlookHandler&)>>> cases = {
        {Selector::createSignature, [&](OutlookHandler& h) { h.createDefaultNewSignature(html); }},
        {Selector::createSignature, [&](OutlookHandler& h) { h.createDefaultReplySignature(html); }},
        {Selector::deleteSignature, [](OutlookHandler& h) { h.deleteDefaultNewSignature(); }},
        {Selector::deleteSignature, [](OutlookHandler& h) { h.deleteDefaultReplySignature(); }},
        {Selector::createSignature, [&](OutlookHandler& h) { h.createSignature(odd, html); }},
        {Selector::createSignature, [](OutlookHandler& h) { h.createSignature("", ""); }},
        {Selector::deleteSignature, [](OutlookHandler& h) { h.deleteSignature("Old"); }},
        {Selector::deleteSignatures, [](OutlookHandler& h) { h.deleteSignatures(); }},
    };
    for (const auto& [selector, call] : cases) {
        OutlookHandler handler = readyHandler();
        for (const std::string mode : {"succeeds", "fails", "no script"}) {
            mode == "succeeds" ? script.failing.clear() : script.fail(selector);
            script.scriptAvailable = mode != "no script";
            call(handler);
            look(mode);
        }
        script.failing.clear(), script.scriptAvailable = true;
    }
    expectGolden("outlook/operations", out.str());
}

// One object, messages with the account; `undefined` in a row stands for dontchange too. A failed first
// message does not keep the other default from being tried; without an account or a script nothing is sent.
TEST_F(OutlookHandlerTest, ApplySendsTheMessagesOfItsActionsToOneObjectWithTheAccount) {
    const auto set = Action::change, clear = Action::clear, none = Action::undefined;
    const std::vector<std::pair<Action, Action>> cases = {{set, set},   {clear, clear}, {set, clear},
                                                          {clear, set}, {set, none},    {clear, none},
                                                          {none, set},  {none, clear},  {none, none}};
    OutlookHandler handler = readyHandler();
    for (const auto& [newRow, replyRow] : cases) {
        for (const Action other : {Action::undefined, Action::dontchange}) {
            const Action newAction = newRow == none ? other : newRow,
                         replyAction = replyRow == none ? other : replyRow;
            const bool applied = handler.applyDefaultSignatures(newAction, replyAction);
            look(std::to_string(int(newAction)) + "/" + std::to_string(int(replyAction)) + ": " +
                 std::to_string(applied));
        }
    }
    script.fail(Selector::applyNoneDefaultNewSignatureFor);
    std::string results = std::to_string(handler.applyDefaultSignatures(clear, set));
    script.scriptAvailable = false;
    results += std::to_string(handler.applyDefaultSignatures(set, set));
    OutlookHandler::defaultAccount.reset();
    script.scriptAvailable = true;
    results += std::to_string(handler.applyDefaultSignatures(Action::dontchange, Action::dontchange));
    look("failed message, no script, no account: " + results);
    expectGolden("outlook/apply", out.str());
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
