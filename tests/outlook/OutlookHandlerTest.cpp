#include "outlook/OutlookHandler.h"
#include "base/TextValues.h"
#include "outlook/RecordingScriptHost.h"
#include "outlook/SignatureFormMemory.h"
#include "platform/Platform.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <regex>

namespace varnoth::test {
namespace {

using Selector = AppleScriptProtocol::Selector;
using Message = RecordingScriptHost::Message;
using Action = SignatureAction;

const std::string replyName = "Default Reply Forward Email Signature";

// Case text with "{text}N" standing for the text N times (long runs of combining marks).
std::string expanded(std::string text) {
    static const std::regex run(R"(\{([^}]*)\}(\d+))");
    for (std::smatch found; std::regex_search(text, found, run);) {
        std::string times;
        for (int count = std::stoi(found[2]); count-- > 0;) {
            times += found[1];
        }
        text = found.prefix().str() + times + found.suffix().str();
    }
    return text;
}

// The handler's transcripts compare what it logged and sent with tests/golden/outlook/.
class OutlookHandlerTest : public AgentTest, public testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        auto ports = Platform::ports();
        ports.scriptHost = &script;
        Platform::install(ports);
    }
    // The lines logged, the messages sent (each argument in brackets) and the scripts loaded and objects
    // made since the last look; then they are forgotten.
    std::string look() {
        std::string text = joinLines(logLines());
        for (const auto& message : script.messages) {
            text += "> " + message.selector;
            for (const auto& argument : message.arguments) {
                text += " [" + argument + "]";
            }
            text += "\n";
        }
        text +=
            "-- loads " + std::to_string(script.loads) + ", objects " + std::to_string(script.objectsMade);
        clearLog();
        script.messages.clear();
        script.loads = script.objectsMade = 0;
        return text;
    }

    RecordingScriptHost script;
};

// Each scenario is a step file of tests/golden/outlook/; a step's answer is its result, if any, then what the
// handler logged and sent. "compare OUTLOOKS | SERVERS" puts Outlook's defaults and asks whether the
// server's text equals them and whether each default needs an update.
TEST_P(OutlookHandlerTest, StepsLogAndSendWhatTheirScenarioFileHolds) {
    std::optional<OutlookHandler> handler;
    std::string result;
    const auto flag = [](bool value) { return std::to_string(value); };
    const std::map<std::string, std::function<void(const std::vector<std::string>&)>> steps = {
        {"handler", [&](auto&) { handler.emplace(), result = OutlookHandler::defaultAccount.value_or("-"); }},
        {"script", [&](auto& a) { script.scriptAvailable = a[0] == "1"; }},
        {"version", [&](auto& a) { script.version = a[0]; }},
        {"account", [&](auto& a) { script.account = a[0]; }},
        {"fail", [&](auto& a) { script.fail(a[0]); }},
        {"no-reply", [&](auto& a) { script.replies[a[0]] = ScriptReply::nothing(); }},
        {"clear", [&](auto&) { script.replies.clear(), script.failing.clear(); }},
        {"forget", [&](auto&) { OutlookHandler::defaultAccount.reset(); }},
        {"compare",
         [&](auto& a) {
             script.signatures[OutlookHandler::newSignatureName] = script.signatures[replyName] = a[0];
             result = "equal " + flag(OutlookHandler::canonicallyEqual(a[1], a[0]));
             result += ", new " + flag(handler->defaultNewSignatureNeedsUpdate(a[1]));
             result += ", reply " + flag(handler->defaultReplySignatureNeedsUpdate(a[1]));
         }},
        {"create-new", [&](auto& a) { result = flag(handler->createDefaultNewSignature(a[0])); }},
        {"create-reply", [&](auto& a) { result = flag(handler->createDefaultReplySignature(a[0])); }},
        {"create", [&](auto& a) { result = flag(handler->createSignature(a[0], a[1])); }},
        {"delete-new", [&](auto&) { handler->deleteDefaultNewSignature(); }},
        {"delete-reply", [&](auto&) { handler->deleteDefaultReplySignature(); }},
        {"delete", [&](auto& a) { handler->deleteSignature(a[0]); }},
        {"delete-all", [&](auto&) { handler->deleteSignatures(); }},
        {"apply",
         [&](auto& a) {
             result = flag(handler->applyDefaultSignatures(Action(a[0][0] - '0'), Action(a[0][2] - '0')));
         }},
    };
    expectTranscript("outlook/" + GetParam(), [&](const std::string& step, const std::string& rest) {
        result.clear();
        steps.at(step)(caseArguments(expanded(rest)));
        return text::replaceAll((result.empty() ? "" : result + "\n") + look(), "\n", "\n= ");
    });
}

// account: asked for until known, then kept for the process; compare: by canonical
// equivalence; operations: each one's message and lines, or its failure; apply: the messages of the actions
// to one object with the account.
INSTANTIATE_TEST_SUITE_P(Scenarios, OutlookHandlerTest,
                         testing::Values("account", "compare", "operations", "apply"),
                         [](const auto& info) { return info.param; });

TEST_F(OutlookHandlerTest, OutlooksOwnFormOfACreatedSignatureReadsAsTheCreatedContentUntilItChanges) {
    script.responder = [&](const Message& message) -> std::optional<ScriptReply> {
        if (message.selector == Selector::createSignature) { // Outlook keeps its own HTML
            script.signatures[message.arguments[0]] = "<html>" + message.arguments[1] + "</html>";
            return ScriptReply::nothing();
        }
        return std::nullopt;
    };
    OutlookHandler handler;
    EXPECT_TRUE(handler.createDefaultReplySignature("<p>A</p>") &&
                handler.createSignature("Other", std::string(OutlookHandler::maxSignatureBytes, 'x')));
    const auto sha256 = SignatureFormMemory::digest;
    const std::vector<std::string> memory{"8", sha256("<p>A</p>"), "21", sha256("<html><p>A</p></html>")};
    EXPECT_EQ(defaults.stringArray("outlookSignatureForm." + replyName), memory); // never the content
    // Every created signature is remembered so, however large.
    EXPECT_EQ(defaults.stringArray("outlookSignatureForm.Other").value_or(std::vector<std::string>{}).size(),
              4u);
    EXPECT_FALSE(handler.defaultReplySignatureNeedsUpdate("<p>A</p>"));
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>B</p>")); // changed on the server
    // An earlier version's memory (the content itself) still reads, and is then kept as digests.
    defaults.setStringArray("outlookSignatureForm." + replyName, {"<p>A</p>", memory[3]});
    EXPECT_FALSE(handler.defaultReplySignatureNeedsUpdate("<p>A</p>"));
    EXPECT_EQ(defaults.stringArray("outlookSignatureForm." + replyName), memory);
    script.signatures[replyName] = "<html><p>A</p> edited</html>"; // changed in Outlook
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>A</p>"));
    // The digest is SHA-256 (one, two and many blocks), so what one version stored the next still knows.
    for (const auto& [text, digest] : std::vector<std::pair<std::string, std::string>>{
             {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
             {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
             {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
             {std::string(1000000, 'a'),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}}) {
        EXPECT_EQ(SignatureFormMemory::digest(text), digest) << text.size();
    }
}

} // namespace
} // namespace varnoth::test
