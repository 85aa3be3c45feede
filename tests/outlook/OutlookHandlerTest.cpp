#include "outlook/OutlookHandler.h"
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

class OutlookHandlerTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        auto ports = Platform::ports();
        ports.scriptHost = &script;
        Platform::install(ports);
    }
    RecordingScriptHost script;
};

// Canonical equivalence, not compatibility equivalence: precomposed and decomposed, the Angstrom sign,
// marks in either order; white space, case and a final line break count. A default that equals the
// server's text needs no update, unless it cannot be read or there is no script at all. Rows are
// "OUTLOOK | SERVER" with escapes, "{text}N" standing for the text N times.
TEST_F(OutlookHandlerTest, ADefaultNeedsAnUpdateUnlessItIsCanonicallyEqual) {
    const std::vector<std::pair<const char*, bool>> rows = {
        {"a | b", false}, // one code point a side: its decomposition fills its buffer exactly
        {"<p>José García</p> | <p>Jose\\xCC\\x81 Garci\\xCC\\x81a</p>", true},
        {"<p>José García</p> | <p>José  García</p>", false},
        {"<p>José</p> | <p>josé</p>", false},
        {"<p>Regards</p>\\n | <p>Regards</p>\\n", true},
        {"<p>Regards</p>\\n | <p>Regards</p>", false},
        {"\\xE2\\x84\\xAB | Å", true},
        {"a\\xCC\\xA3\\xCC\\x87 | a\\xCC\\x87\\xCC\\xA3", true},
        {"ṩ | s\\xCC\\x87\\xCC\\xA3", true},
        {"가 | \\xE1\\x84\\x80\\xE1\\x85\\xA1", true},
        // Long runs of marks (sorted in one pass) keep the order of marks of one class, each run on its own.
        {"a{\\xCC\\x87\\xCC\\xA3}40 | a{\\xCC\\xA3}40{\\xCC\\x87}40", true},
        {"a\\xCC\\x80\\xCC\\x81{\\xCC\\xA3}40 | a\\xCC\\x81\\xCC\\x80{\\xCC\\xA3}40", false},
        {"a{\\xCC\\x87\\xCC\\xA3}20 b{\\xCC\\x87\\xCC\\xA3}20 | a{\\xCC\\xA3}20{\\xCC\\x87}20 "
         "b{\\xCC\\xA3}20{\\xCC\\x87}20",
         true},
        {"a{\\xCC\\x87\\xCC\\xA3}20 b{\\xCC\\x87\\xCC\\xA3}20 | a{\\xCC\\x87\\xCC\\xA3}20 "
         "b{\\xCC\\x81\\xCC\\xA3}20",
         false},
        // Text that is not UTF-8 equals only itself; a ligature is only compatibility-equal.
        {"\\xFF\\xFE | \\xFF\\xFE", true},
        {"\\xFF | \\xFE", false},
        {"ﬁ | fi", false},
        {"e | e\\xCC\\x81", false},
        {"a\\x00b | a", false},
    };
    OutlookHandler handler;
    for (const auto& [row, equal] : rows) {
        SCOPED_TRACE(row);
        const auto texts = caseArguments(expanded(row));
        script.signatures[OutlookHandler::newSignatureName] = script.signatures[replyName] = texts[0];
        EXPECT_EQ(OutlookHandler::canonicallyEqual(texts[1], texts[0]), equal);
        EXPECT_EQ(handler.defaultNewSignatureNeedsUpdate(texts[1]), !equal);
        EXPECT_EQ(handler.defaultReplySignatureNeedsUpdate(texts[1]), !equal);
    }
    script.signatures[OutlookHandler::newSignatureName] = script.signatures[replyName] = "<p>R</p>";
    script.fail("getSignature:");
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>R</p>"));
    script.failing.clear();
    script.scriptAvailable = false;
    EXPECT_TRUE(handler.defaultReplySignatureNeedsUpdate("<p>R</p>"));
}

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
