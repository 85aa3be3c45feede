#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/support/AgentTest.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <stdexcept>

namespace varnoth::test {
namespace {

using namespace std::string_literals;
using Action = SignatureAction;

const std::string newName = "Default New Email Signature";
const std::string replyName = "Default Reply Forward Email Signature";

// The stand-in's store in the test's own data folder, and the agent's real script resource running
// the real stand-in program.
class OutlookStandInTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        for (const char* name : {"VARNOTH_OUTLOOK_STANDIN", "VARNOTH_OUTLOOK_ACCOUNT",
                                 "VARNOTH_OUTLOOK_VERSION", "VARNOTH_OUTLOOK_FORM"}) {
            setEnvironment(name, std::nullopt);
        }
        store = OutlookStandInStore(OutlookStandInStore::defaultFolder());
        ASSERT_EQ(store.folder(), root() / "home/.local/share/Varnoth/Outlook");
        OutlookHandler::defaultAccount.reset();
        // A build tree as CMake lays it out: the agent in app/ (not built here), the stand-in under tools/.
        const auto build = root() / "build";
        std::filesystem::create_directories(build / "tools/outlook-standin");
        std::filesystem::create_symlink(VARNOTH_TEST_STANDIN,
                                        build / "tools/outlook-standin/varnoth-outlook-standin");
        useAgentAt(build / "app/varnoth-agent");
    }

    // Where the agent's executable is decides where the script looks for the stand-in.
    void useAgentAt(const std::filesystem::path& executable) {
        auto ports = Platform::ports();
        ports.scriptHost = &host;
        ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
        ports.bundle.executablePath = executable;
        Platform::install(ports);
    }

    // Made in SetUp, once HOME and the XDG folders point into the test's own folder.
    OutlookStandInStore store{"/nonexistent"};
    ProcessScriptHost host{std::chrono::seconds(60)};
};

// Any name and content come back exactly, beside an interrupted write; deleting a signature makes it
// nobody's default.
TEST_F(OutlookStandInTest, StoreKeepsAnyNameAndContentAndDefaultsFollowTheirSignatures) {
    std::vector<std::string> names = {"a/b \"c\"", "..", "%41", "line\nbreak",
                                      "\u00DCn\u00EFc\u00F6de \U0001F600"};
    for (const auto& name : names) {
        store.createSignature(name, name + "\0\r\n"s);
        EXPECT_EQ(store.signature(name), name + "\0\r\n"s) << name;
    }
    writeFile(store.folder() / "signatures/.tmp-abc123", "half a signa");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(store.signatureNames(), names);
    EXPECT_THROW(store.createSignature("", "x"), std::runtime_error);

    store.createSignature(newName, "new");
    store.setDefaultNewSignature("user@example.com", newName);
    EXPECT_THROW(store.setDefaultNewSignature("user@example.com", "Missing"), std::runtime_error);
    store.deleteSignature(newName);
    EXPECT_FALSE(store.defaults("user@example.com").newMessages);
    setEnvironment("VARNOTH_OUTLOOK_ACCOUNT", "env@example.com");
    EXPECT_EQ(store.defaultAccount(), "env@example.com");
}

// The agent through its script resource and the stand-in program.
TEST_F(OutlookStandInTest, HandlerInstallsAndComparesSignaturesInTheStandIn) {
    store.setDefaultAccount("user@example.com");
    OutlookHandler handler;
    EXPECT_EQ(OutlookHandler::defaultAccount, "user@example.com");
    const std::string name = "a/b \"c\"";
    const std::string html = "<p class=\"sig\">Jos\u00E9 \u2014 'Sales' & \"Support\" \U0001F4DE</p>\r\n";
    EXPECT_TRUE(handler.createSignature(name, html));
    EXPECT_EQ(store.signature(name), html);
    EXPECT_EQ(handler.makeScriptObject()->getSignature(name), html);

    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9</p>"));
    EXPECT_TRUE(handler.createDefaultNewSignature("<p>Jos\u00E9</p>"));
    EXPECT_FALSE(handler.defaultNewSignatureNeedsUpdate("<p>Jose\u0301</p>"));
    EXPECT_TRUE(handler.createDefaultReplySignature("<p>Re</p>"));
    const auto defaults = [&] { return store.defaults("user@example.com"); };
    EXPECT_TRUE(handler.applyDefaultSignatures(Action::change, Action::change));
    EXPECT_EQ(defaults().repliesAndForwards, replyName);
    // Created again (the next run), it is updated in place as in Outlook: still the default.
    EXPECT_TRUE(handler.createDefaultNewSignature("<p>Jos\u00E9!</p>"));
    EXPECT_TRUE(handler.applyDefaultSignatures(Action::dontchange, Action::clear));
    EXPECT_EQ(defaults().newMessages, newName);
    EXPECT_FALSE(defaults().repliesAndForwards);

    handler.deleteDefaultNewSignature();
    handler.deleteSignature(name);
    EXPECT_EQ(store.signatureNames(), std::vector<std::string>{replyName});
    EXPECT_FALSE(defaults().newMessages);
    // Outlook cannot make a missing signature the default: the stand-in refuses.
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::change, Action::undefined));
    handler.deleteSignatures();
    EXPECT_TRUE(store.signatureNames().empty());
}

TEST_F(OutlookStandInTest, StandInRefusesUnknownOperationsAndWrongArguments) {
    host.loadScripts();
    auto object = host.makeObject("OutlookScriptObj");
    for (const auto& [selector, arguments] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"frobnicate:", {"x"}}, {"getSignature:", {}}, {"getVersion", {"unexpected"}}}) {
        EXPECT_FALSE(object->send(selector, arguments).delivered) << selector;
    }
    EXPECT_TRUE(object->send("getVersion", {}).delivered);
    const auto run = [](std::vector<std::string> arguments, std::string input) {
        return PosixProcessLauncher()
            .run({VARNOTH_TEST_STANDIN, arguments, input, std::chrono::seconds(30), {}})
            .exitCode;
    };
    EXPECT_EQ(run({"getSignature:"}, "one\0two\0"s), 2);
    EXPECT_EQ(run({"getSignature:"}, "unterminated"), 2);
    EXPECT_EQ(run({}, ""), 2);
    EXPECT_EQ(run({"list", "extra"}, ""), 2);
}

TEST_F(OutlookStandInTest, ScriptFindsTheStandInBesideTheAgentOrThroughTheOverride) {
    store.setVersion("16.81");
    // Installed: the stand-in beside the agent's executable.
    const auto installed = root() / "opt/bin";
    std::filesystem::create_directories(installed);
    std::filesystem::create_symlink(VARNOTH_TEST_STANDIN, installed / "varnoth-outlook-standin");
    useAgentAt(installed / "varnoth-agent");
    EXPECT_EQ(OutlookHandler().getVersion(), "16.81");

    // Nowhere to be found: the message fails and the handler carries on.
    useAgentAt(root() / "nowhere/varnoth-agent");
    EXPECT_FALSE(OutlookHandler().getVersion());

    // The override wins over every other place.
    writeFile(root() / "fake-outlook", "#!/bin/sh\nprintf 'override %s' \"$1\"\n");
    std::filesystem::permissions(root() / "fake-outlook", std::filesystem::perms::owner_all);
    setEnvironment("VARNOTH_OUTLOOK_STANDIN", (root() / "fake-outlook").string());
    useAgentAt(installed / "varnoth-agent");
    EXPECT_EQ(OutlookHandler().getVersion(), "override getVersion");
}

} // namespace
} // namespace varnoth::test
