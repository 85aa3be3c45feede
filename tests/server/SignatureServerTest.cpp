#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"
#include "tests/server/ServerProcess.h"
#include "tests/support/AgentTest.h"
#include "tools/signature-server/SignatureServer.h"

#include <csignal>

namespace varnoth::test {
namespace {

using signatureserver::ServerOptions;
using signatureserver::SignatureServer;

std::string joined(const SignatureServer::Reply& reply) {
    std::string bytes;
    for (const auto& write : reply.writes) {
        bytes += write;
    }
    return bytes;
}

class SignatureServerTest : public AgentTest {
protected:
    ServerOptions options(const std::string& data = VARNOTH_EXAMPLES_DIR) {
        ServerOptions result;
        result.dataFolder = data;
        result.logFolder = root() / "logs";
        return result;
    }
};

TEST_F(SignatureServerTest, DemoAnswerParsesIntoTheDeploymentOfEachMailbox) {
    SignatureServer server(options());
    const std::string bytes = joined(server.handle(makeSignaturesRequest("JONAS.WEBER@example.com")));
    const auto text = utf16::decode(bytes);
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

TEST_F(SignatureServerTest, UnknownMailboxAnswerHoldsNoSetting) {
    SignatureServer server(options());
    NetworkService service;
    const auto descriptor = service.parseSignatures(server.answerText("nobody@example.com"));
    ASSERT_TRUE(descriptor);
    EXPECT_TRUE(descriptor->noSetting);
}

TEST_F(SignatureServerTest, FaultsShapeTheAnswerBytes) {
    const std::string request = makeSignaturesRequest("anna.berg@example.com");
    const std::string normal = joined(SignatureServer(options()).handle(request));
    const std::string end = utf16::encodeAscii(framing::endMarker);

    ServerOptions chunked = options();
    chunked.faults.chunks = 7;
    const auto reply = SignatureServer(chunked).handle(request);
    ASSERT_EQ(reply.writes.size(), 7u);
    EXPECT_EQ(joined(reply), normal);
    EXPECT_EQ(reply.writes[0].size() % 2, 1u); // cut at odd offsets
    EXPECT_EQ(reply.writes.back().substr(reply.writes.back().size() - end.size()), end);

    ServerOptions split = options();
    split.faults.splitEndMarker = true;
    const auto halves = SignatureServer(split).handle(request);
    ASSERT_EQ(halves.writes.size(), 2u);
    EXPECT_EQ(halves.writes[1], end.substr(end.size() / 2));
    EXPECT_FALSE(framing::findEndMarker(halves.writes[0]));

    ServerOptions missing = options();
    missing.faults.noStartMarker = true;
    missing.faults.noEndMarker = true;
    const auto bare = utf16::decode(joined(SignatureServer(missing).handle(request)));
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->rfind("<?xml", 0), 0u);
    EXPECT_EQ(bare->substr(bare->size() - 11), "</Response>");

    ServerOptions broken = options();
    broken.faults.invalidUtf16 = true;
    EXPECT_EQ(utf16::decode(joined(SignatureServer(broken).handle(request))), std::nullopt);
}

TEST_F(SignatureServerTest, DeploymentLogsAreStoredDecodedOneFileEach) {
    SignatureServer server(options());
    const std::string first = makeDeploymentLogRequest("<Result>Success</Result><DeploymentLog>Grüße 😀</DeploymentLog>");
    EXPECT_TRUE(server.handle(first).writes.empty());
    EXPECT_TRUE(server.handle(makeDeploymentLogRequest("<Result>Failure</Result>")).writes.empty());
    const auto files = ServerProcess::waitForFiles(root() / "logs", 2);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(readWholeFile(files[0]), utf16::decode(first));
}

TEST_F(SignatureServerTest, WhateverAClientSendsGetsAnAnswerOrNone) {
    SignatureServer server(options());
    const std::vector<std::string> requests{
        "",
        "x",
        std::string("\x00\xD8", 2),
        utf16::encode("##!! DATA BLOCK END !!##"),
        utf16::encode("<Request Type=\"Other\"/>"),
        utf16::encode("<Request Type=\"GetSignatures\"><EmailAddress>a&b</EmailAddress></Request>"),
        utf16::encode("<Request Type=\"GetSignatures\"/>"),
        makeDeploymentLogRequest("<unclosed>"),
    };
    for (const std::string& request : requests) {
        const auto reply = server.handle(request);
        if (!reply.writes.empty()) {
            EXPECT_TRUE(utf16::decode(joined(reply)));
        }
    }
    EXPECT_EQ(ServerProcess::waitForFiles(root() / "logs", 1).size(), 1u); // the ill-formed log is kept too
}

TEST_F(SignatureServerTest, DataFolderErrorsNameTheFileAndLine) {
    const auto folder = root() / "data";
    writeFile(folder / "templates/a.html", "<p>a</p>");
    const auto expectError = [&](const std::string& config, const std::string& part) {
        writeFile(folder / "signatures.conf", config);
        try {
            SignatureServer server(options(folder.string()));
            ADD_FAILURE() << "accepted: " << config;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
        }
    };
    expectError("[mailbox a@b]\ndefault = missing.html\n", "signatures.conf:2: no template file templates/missing.html");
    expectError("[mailbox a@b]\ngroup = Nobody\n", "unknown group Nobody");
    expectError("[mailbox a@b]\nremove-other = sometimes\n", ":2: remove-other is remove, preserve or global");
    expectError("[team x]\n", ":1: expected [global]");
    expectError("default = a.html\n", ":1: setting outside a section");
    expectError("[mailbox a@b]\nadditional = a.html\n", "expected additional = NAME | FILE");

    writeFile(folder / "signatures.conf", "[mailbox a@b]\ndefault = none\nreply = a.html\nadditional = A | a.html\n");
    SignatureServer server(options(folder.string()));
    NetworkService service;
    const auto descriptor = service.parseSignatures(server.answerText("a@b"));
    ASSERT_TRUE(descriptor);
    EXPECT_EQ(descriptor->defaultSignatureAction, SignatureAction::clear);
    EXPECT_EQ(descriptor->replySignature, "<p>a</p>");
    EXPECT_TRUE(descriptor->additionalSignatures.empty()); // the same template as the reply default
}

TEST(SignatureServerProcessTest, ServesManyClientsAtOnceAndExitsCleanlyOnSigterm) {
    ServerProcess server({"--delay", "200"});
    std::vector<std::thread> clients;
    std::atomic<int> answered{0};
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back([&] {
            TCPClient client("127.0.0.1", server.port());
            if (client.connect(5) || client.send(makeSignaturesRequest("anna.berg@example.com"))) {
                return;
            }
            std::string bytes;
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (std::chrono::steady_clock::now() < deadline) {
                if (auto chunk = client.read(102400, -1)) {
                    bytes += *chunk;
                    if (framing::findEndMarker(bytes)) {
                        ++answered;
                        return;
                    }
                }
            }
        });
    }
    for (auto& client : clients) {
        client.join();
    }
    EXPECT_EQ(answered, 20);
    TCPClient idle("127.0.0.1", server.port());
    ASSERT_EQ(idle.connect(5), std::nullopt);
    EXPECT_EQ(server.stop(), 0);
}

} // namespace
} // namespace varnoth::test
