#include "tools/signature-server/SignatureServer.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"
#include "tests/server/Describe.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tests/support/ServerProcess.h"

#include <algorithm>
#include <numeric>

namespace varnoth::test {
namespace {

using signatureserver::SignatureServer;

std::string joined(const SignatureServer::Reply& reply) {
    return std::accumulate(reply.writes.begin(), reply.writes.end(), std::string());
}

class SignatureServerTest : public AgentTest {
protected:
    signatureserver::ServerOptions options(const std::string& data = VARNOTH_TEST_DATA_DIR) {
        return {data, root() / "logs", {}, {}, {}};
    }
};

// The whole descriptor, identification and log lines of the demo answer for a mailbox of its own, whose
// PreseveOtherSignatures beats the global true.
TEST_F(SignatureServerTest, DemoAnswerIsFramedAndParsesIntoTheMailboxsDeployment) {
    SignatureServer server(options());
    const auto text = utf16::decode(joined(server.handle(makeSignaturesRequest("JONAS.WEBER@example.com"))));
    ASSERT_TRUE(text && text->starts_with(framing::startMarker));
    NetworkService service;
    clearLog();
    const auto descriptor = service.parseSignatures(framing::unframe(*text));
    expectGolden("server/demo-answer", describe(descriptor, service, logLines()));
}

TEST_F(SignatureServerTest, WhateverAClientSendsGetsAnAnswerOrNoneAndEachLogIsKept) {
    SignatureServer server(options());
    const std::string log =
        makeDeploymentLogRequest("<Result>Success</Result><DeploymentLog>Grüße 😀</DeploymentLog>");
    for (const std::string& request :
         {std::string(), std::string("x"), std::string("\x00\xD8", 2),
          utf16::encode("##!! DATA BLOCK END !!##"), utf16::encode("<Request Type=\"Other\"/>"),
          utf16::encode("<Request Type=\"GetSignatures\"><EmailAddress>a&b</EmailAddress></Request>"),
          utf16::encode("<Request Type=\"GetSignatures\"/>"), log, makeDeploymentLogRequest("<unclosed>"),
          // Two frames in one request, or a marker inside one, are not stored.
          log + log, utf16::encode("##!! DATA BLOCK START !!##x") + log}) {
        const auto answer = server.handle(request);
        EXPECT_TRUE(answer.writes.empty() || utf16::decode(joined(answer)));
    }
    const auto files = ServerProcess::waitForFiles(root() / "logs", 2);
    ASSERT_EQ(files.size(), 2u); // the ill-formed log is kept too
    EXPECT_TRUE(readWholeFile(files[0]) == utf16::decode(log) ||
                readWholeFile(files[1]) == utf16::decode(log));
}

// Each data folder's signatures.conf gives the error naming its file and line, or the answer for a@b on one
// line; a template used as a default is not also an additional signature.
TEST_F(SignatureServerTest, DataFolderErrorsNameTheFileAndLine) {
    const auto folder = root() / "data";
    writeFile(folder / "templates/a.html", "<p>a</p>");
    expectTranscript("server/data-folders", [&](const std::string&, const std::string& config) {
        writeFile(folder / "signatures.conf", unescaped(config));
        try {
            NetworkService service;
            const auto answer = SignatureServer(options(folder.string())).answerText("a@b");
            auto text = describe(service.parseSignatures(answer), service, {});
            std::replace(text.begin(), text.end(), '\n', ';');
            return text;
        } catch (const std::runtime_error& error) {
            return "error: " + std::string(error.what()).replace(0, folder.string().size(), "DATA");
        }
    });
}

} // namespace
} // namespace varnoth::test
