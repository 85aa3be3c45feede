#include "tools/signature-server/SignatureServer.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <gmock/gmock.h>
#include <numeric>

namespace varnoth::test {
namespace {

using signatureserver::Faults;
using signatureserver::ServerOptions;
using signatureserver::SignatureServer;

std::string joined(const SignatureServer::Reply& reply) {
    return std::accumulate(reply.writes.begin(), reply.writes.end(), std::string());
}

class SignatureServerTest : public AgentTest {
protected:
    ServerOptions options(const std::string& data = VARNOTH_EXAMPLES_DIR, Faults faults = {}) {
        return {data, root() / "logs", {}, {}, faults};
    }
};

TEST_F(SignatureServerTest, DemoAnswerIsFramedAndParsesIntoTheMailboxsDeployment) {
    SignatureServer server(options());
    const auto text = utf16::decode(joined(server.handle(makeSignaturesRequest("JONAS.WEBER@example.com"))));
    ASSERT_TRUE(text);
    ASSERT_EQ(text->rfind(std::string(framing::startMarker), 0), 0u);
    NetworkService service;
    const auto descriptor = service.parseSignatures(framing::unframe(*text));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::change);
    EXPECT_EQ(descriptor->replySignatureAction, SignatureAction::dontchange);
    EXPECT_NE(descriptor->defaultSignature->find("Jonas Weber"), std::string::npos);
    EXPECT_EQ(descriptor->additionalSignatures.size(), 1u);
    EXPECT_FALSE(descriptor->removeOtherSignatures); // PreseveOtherSignatures beats the global true
    EXPECT_EQ(service.deployIdentifier, "mailbox:jonas.weber@example.com");
}

TEST_F(SignatureServerTest, WhateverAClientSendsGetsAnAnswerOrNoneAndEachLogIsKept) {
    SignatureServer server(options());
    const std::string log =
        makeDeploymentLogRequest("<Result>Success</Result><DeploymentLog>Grüße 😀</DeploymentLog>");
    for (const std::string& request :
         {std::string(), std::string("x"), std::string("\x00\xD8", 2),
          utf16::encode("##!! DATA BLOCK END !!##"), utf16::encode("<Request Type=\"Other\"/>"),
          utf16::encode("<Request Type=\"GetSignatures\"><EmailAddress>a&b</EmailAddress></Request>"),
          utf16::encode("<Request Type=\"GetSignatures\"/>"), log, makeDeploymentLogRequest("<unclosed>")}) {
        const auto answer = server.handle(request);
        EXPECT_TRUE(answer.writes.empty() || utf16::decode(joined(answer)));
    }
    const auto files = ServerProcess::waitForFiles(root() / "logs", 2);
    ASSERT_EQ(files.size(), 2u); // the ill-formed log is kept too
    EXPECT_TRUE(readWholeFile(files[0]) == utf16::decode(log) ||
                readWholeFile(files[1]) == utf16::decode(log));
}

TEST_F(SignatureServerTest, DataFolderErrorsNameTheFileAndLine) {
    const auto folder = root() / "data";
    writeFile(folder / "templates/a.html", "<p>a</p>");
    for (const auto& [config, part] : std::vector<std::pair<std::string, std::string>>{
             {"[mailbox a@b]\ndefault = missing.html\n",
              "signatures.conf:2: no template file templates/missing.html"},
             {"[mailbox a@b]\ngroup = Nobody\n", "unknown group Nobody"},
             {"[mailbox a@b]\nremove-other = sometimes\n", ":2: remove-other is remove, preserve or global"},
             {"[team x]\n", ":1: expected [global]"},
             {"default = a.html\n", ":1: setting outside a section"},
             {"[mailbox a@b]\nadditional = a.html\n", "expected additional = NAME | FILE"},
         }) {
        writeFile(folder / "signatures.conf", config);
        EXPECT_THAT([&] { SignatureServer server(options(folder.string())); },
                    testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(part)))
            << config;
    }
    writeFile(folder / "signatures.conf",
              "[mailbox a@b]\ndefault = none\nreply = a.html\nadditional = A | a.html\n");
    NetworkService service;
    const auto descriptor =
        service.parseSignatures(SignatureServer(options(folder.string())).answerText("a@b"));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::clear);
    EXPECT_EQ(descriptor->replySignature, "<p>a</p>");
    EXPECT_TRUE(descriptor->additionalSignatures.empty()); // the same template as the reply default
}

} // namespace
} // namespace varnoth::test
