#include "server/SignatureDocuments.h"
#include "server/NetworkService.h"
#include "server/Utf16.h"
#include "tests/server/Describe.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <fstream>

namespace varnoth::test {
namespace {

class SignatureDocumentsTest : public AgentTest {
protected:
    NetworkService service;
};

// Each answer of the input file ("=== title", then the document's lines) is parsed after an exchange
// that left "earlier" as its deployment identification; the outcomes are one golden transcript.
TEST_F(SignatureDocumentsTest, EachAnswerGivesItsDescriptorIdentificationAndLogLines) {
    std::ifstream in(std::string(VARNOTH_GOLDEN_DIR) + "/server/signature-answers-input.txt");
    std::vector<std::pair<std::string, std::string>> answers;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("=== ")) {
            answers.emplace_back(line, "");
        } else {
            answers.back().second += (answers.back().second.empty() ? "" : "\n") + line;
        }
    }
    std::string transcript;
    for (const auto& [title, text] : answers) {
        service.deployIdentifier = service.deployInformation = "earlier";
        clearLog();
        const auto descriptor = service.parseSignatures(text);
        transcript += title + "\n" + describe(descriptor, service, logLines());
    }
    expectGolden("server/signature-answers", transcript);
}

TEST_F(SignatureDocumentsTest, NamesAreQuotedAndARunawayTemplateListIsCut) {
    auto item = [](const std::string& name) {
        return "<Template><Name>" + name + "</Name><HTML>x</HTML></Template>";
    };
    std::string templates = item("Evil\n2024-01-01 00:00:00  Forged\x1B");
    for (int i = 0; i < 500; ++i) {
        templates += item("t" + std::to_string(i));
    }
    const auto descriptor =
        service.parseSignatures("<Response><Identifier>x</Identifier><DeploymentData><DefaultSignature>1</"
                                "DefaultSignature><ReplyForwardSignature>2"
                                "</ReplyForwardSignature><Templates>" +
                                templates + "</Templates></DeploymentData></Response>");
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->additionalSignatures.size(), 500u); // the first 500 of 501
    const auto lines = logLines();
    EXPECT_EQ(std::ranges::count(lines, "Found signature: Evil\\n2024-01-01 00:00:00  Forged\\x1B"), 1);
    EXPECT_EQ(std::ranges::count(
                  lines, "Error: response from server holds more than 500 templates; the others are ignored"),
              1);
}

TEST(SignaturesRequestTest, PutsTheAddressInUnchanged) {
    const auto text = utf16::decode(makeSignaturesRequest("a&<b@example.com"));
    EXPECT_NE(text->find("<EmailAddress>a&<b@example.com</EmailAddress></Request>"), std::string::npos);
}

} // namespace
} // namespace varnoth::test
