#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/support/AgentTest.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <cstdlib>
#include <stdexcept>

namespace varnoth::test {
namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;
using Action = SignatureAction;

const std::string newName = "Default New Email Signature";
const std::string replyName = "Default Reply Forward Email Signature";
const char* const variables[] = {"VARNOTH_OUTLOOK_STANDIN", "VARNOTH_OUTLOOK_ACCOUNT",
                                 "VARNOTH_OUTLOOK_VERSION", "VARNOTH_OUTLOOK_FORM"};

// The stand-in's store in the test's own data folder, and the agent's real script resource running
// the real stand-in program.
class OutlookStandInTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        for (const char* name : variables) {
            if (const char* value = std::getenv(name)) {
                saved_.emplace_back(name, value);
            }
            unsetenv(name);
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
    void TearDown() override {
        OutlookHandler::defaultAccount.reset();
        for (const char* name : variables) {
            unsetenv(name);
        }
        for (const auto& [name, value] : saved_) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        AgentTest::TearDown();
    }

    // Where the agent's executable is decides where the script looks for the stand-in.
    void useAgentAt(const std::filesystem::path& executable) {
        auto ports = Platform::ports();
        ports.scriptHost = &host;
        ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
        ports.bundle.executablePath = executable;
        Platform::install(ports);
    }

    ProcessLauncher::Result runStandIn(std::vector<std::string> arguments, std::string input = {}) {
        return PosixProcessLauncher().run(
            {VARNOTH_TEST_STANDIN, arguments, input, std::chrono::seconds(30), {}});
    }

    // Made in SetUp, once HOME and the XDG folders point into the test's own folder.
    OutlookStandInStore store{"/nonexistent"};
    ProcessScriptHost host{std::chrono::seconds(60)};

private:
    std::vector<std::pair<std::string, std::string>> saved_;
};

// --- the store itself

TEST_F(OutlookStandInTest, StoreKeepsAnyNameAndContentExactlyAndListsOnlyWholeSignatures) {
    const std::vector<std::string> names = {
        "a/b \"c\"", ".hidden", "..", "x.y", "%41", "line\nbreak", "\u00DCn\u00EFc\u00F6de \U0001F600", "A"};
    for (const auto& name : names) {
        store.createSignature(name, "<p>" + name + "</p>" + std::string("\0\r\n", 3));
    }
    for (const auto& name : names) {
        EXPECT_EQ(store.signature(name), "<p>" + name + "</p>" + std::string("\0\r\n", 3)) << name;
        EXPECT_EQ(OutlookStandInStore::encodeName(name).find('/'), std::string::npos);
    }
    // Replacing keeps one signature; leftovers of an interrupted write are not signatures.
    store.createSignature("A", "second");
    writeFile(store.folder() / "signatures/.tmp-abc123", "half a signa");
    writeFile(store.folder() / "signatures/%61", "not the encoder's name for \"a\"");
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(store.signatureNames(), sorted);
    EXPECT_EQ(store.signature("A"), "second");
    EXPECT_FALSE(store.signature("a"));
    EXPECT_FALSE(store.signature(""));

    EXPECT_THROW(store.createSignature("", "x"), std::runtime_error);
    EXPECT_THROW(store.createSignature(std::string(100, '/'), "x"), std::runtime_error);
}

TEST_F(OutlookStandInTest, DefaultsFollowTheirSignaturesAndSettingsSurviveAnyText) {
    store.createSignature(newName, "new");
    store.createSignature(replyName, "reply");
    store.setDefaultNewSignature("user@example.com", newName);
    store.setDefaultReplySignature("user@example.com", replyName);
    store.setDefaultReplySignature("other=\n@example.com", replyName);
    EXPECT_THROW(store.setDefaultNewSignature("user@example.com", "Missing"), std::runtime_error);
    EXPECT_THROW(store.setDefaultNewSignature("", newName), std::runtime_error);
    EXPECT_EQ(store.accountsWithDefaults(),
              (std::vector<std::string>{"other=\n@example.com", "user@example.com"}));

    // Deleting a signature makes it nobody's default; deleting all clears every default.
    store.deleteSignature(replyName);
    store.deleteSignature("never existed");
    EXPECT_EQ(store.defaults("user@example.com").newMessages, newName);
    EXPECT_FALSE(store.defaults("user@example.com").repliesAndForwards);
    EXPECT_FALSE(store.defaults("other=\n@example.com").repliesAndForwards);
    store.deleteSignatures();
    EXPECT_TRUE(store.signatureNames().empty());
    EXPECT_TRUE(store.accountsWithDefaults().empty());

    EXPECT_EQ(store.version(), "16.80");
    EXPECT_EQ(store.defaultAccount(), "");
    store.setDefaultAccount("name=\"x\"\n@example.com");
    store.setVersion("");
    OutlookStandInStore again(store.folder());
    EXPECT_EQ(again.defaultAccount(), "name=\"x\"\n@example.com");
    EXPECT_EQ(again.version(), "");
    setenv("VARNOTH_OUTLOOK_ACCOUNT", "env@example.com", 1);
    setenv("VARNOTH_OUTLOOK_VERSION", "16.99", 1);
    EXPECT_EQ(again.defaultAccount(), "env@example.com");
    EXPECT_EQ(again.version(), "16.99");
}

// --- the agent through its script resource and the stand-in program

TEST_F(OutlookStandInTest, HandlerInstallsAndComparesSignaturesInTheStandIn) {
    store.setDefaultAccount("user@example.com");
    OutlookHandler handler;
    EXPECT_EQ(logLines(), (Lines{"Outlook 16.80 is installed", "Getting default Outlook account name",
                                 "Successfully got default Outlook account name: user@example.com"}));

    const std::string name = "a/b \"c\"";
    std::string html = "<html><body>\n";
    while (html.size() < (1u << 20)) {
        html += "<p class=\"sig\">Jos\u00E9 \u2014 'Sales' & \"Support\" \U0001F4DE +1 555\u00A00100</p>\r\n";
    }
    EXPECT_TRUE(handler.createSignature(name, html));
    EXPECT_TRUE(store.signature(name) == html); // too large to print on a mismatch
    auto script = handler.makeScriptObject();
    ASSERT_TRUE(script);
    EXPECT_TRUE(script->getSignature(name) == html);

    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>Jos\u00E9</p>"));
    EXPECT_TRUE(handler.createDefaultNewSignature("<p>Jos\u00E9</p>"));
    EXPECT_FALSE(handler.defaultNewSignatureNeedsUpdate("<p>Jose\u0301</p>"));
    EXPECT_TRUE(handler.createDefaultReplySignature("<p>Re</p>"));

    EXPECT_TRUE(handler.applyDefaultSignatures(Action::change, Action::change));
    EXPECT_EQ(store.defaults("user@example.com").newMessages, newName);
    EXPECT_EQ(store.defaults("user@example.com").repliesAndForwards, replyName);
    // Created again (the next run), it is updated in place as in Outlook: still the default.
    EXPECT_TRUE(handler.createDefaultNewSignature("<p>Jos\u00E9!</p>"));
    EXPECT_EQ(store.defaults("user@example.com").newMessages, newName);
    EXPECT_TRUE(handler.applyDefaultSignatures(Action::dontchange, Action::clear));
    EXPECT_EQ(store.defaults("user@example.com").newMessages, newName);
    EXPECT_FALSE(store.defaults("user@example.com").repliesAndForwards);

    handler.deleteDefaultNewSignature();
    handler.deleteSignature(name);
    EXPECT_EQ(store.signatureNames(), std::vector<std::string>{replyName});
    EXPECT_FALSE(store.defaults("user@example.com").newMessages);
    // Outlook cannot make a missing signature the default: the stand-in refuses.
    EXPECT_FALSE(handler.applyDefaultSignatures(Action::change, Action::undefined));
    handler.deleteSignatures();
    EXPECT_TRUE(store.signatureNames().empty());
}

TEST_F(OutlookStandInTest, StandInRefusesUnknownOperationsAndWrongArguments) {
    host.loadScripts();
    auto object = host.makeObject("OutlookScriptObj");
    ASSERT_TRUE(object);
    EXPECT_FALSE(object->send("frobnicate:", {"x"}).delivered);
    EXPECT_FALSE(object->send("getSignature:", {}).delivered);
    EXPECT_FALSE(object->send("getVersion", {"unexpected"}).delivered);
    EXPECT_TRUE(object->send("getVersion", {}).delivered);

    EXPECT_EQ(runStandIn({"getSignature:"}, "one\0two\0"s).exitCode, 2);
    EXPECT_EQ(runStandIn({"getSignature:"}, "unterminated").exitCode, 2);
    EXPECT_EQ(runStandIn({}).exitCode, 2);
    EXPECT_EQ(runStandIn({"list", "extra"}).exitCode, 2);
}

TEST_F(OutlookStandInTest, UserCommandsPrepareAndShowTheStore) {
    ASSERT_TRUE(runStandIn({"set-account", "demo@example.com"}).succeeded());
    ASSERT_TRUE(runStandIn({"set-version", "16.77 (stand-in)"}).succeeded());
    ASSERT_TRUE(runStandIn({"createSignature:content:"}, "Team\nline\0<p>team</p>\0"s).succeeded());
    ASSERT_TRUE(runStandIn({"applyDefaultNewSignatureFor:"}, "demo@example.com\0"s).exitCode != 0);
    ASSERT_TRUE(runStandIn({"createSignature:content:"}, newName + '\0' + "<p>n</p>" + '\0').succeeded());
    ASSERT_TRUE(runStandIn({"applyDefaultNewSignatureFor:"}, "demo@example.com\0"s).succeeded());

    const auto listing = runStandIn({"list"});
    ASSERT_TRUE(listing.succeeded()) << listing.errorOutput;
    for (const std::string& expected : std::vector<std::string>{
             "Version: 16.77 (stand-in)", "Default account: demo@example.com", "Signatures: 2",
             "  Team\\nline (11 bytes)", "  " + newName + " (8 bytes)", "  demo@example.com",
             "    new messages: " + newName, "    replies and forwards: (none)"}) {
        EXPECT_NE(listing.output.find(expected + "\n"), std::string::npos) << expected << "\n"
                                                                           << listing.output;
    }
    EXPECT_EQ(runStandIn({"show", "Team\nline"}).output, "<p>team</p>");
    EXPECT_EQ(runStandIn({"show", "Nothing"}).exitCode, 1);
    EXPECT_EQ(runStandIn({"path"}).output, store.folder().string() + "\n");

    OutlookHandler handler;
    EXPECT_EQ(OutlookHandler::defaultAccount, "demo@example.com");
    EXPECT_EQ(handler.getVersion(), "16.77 (stand-in)");
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
    clearLog();
    EXPECT_FALSE(OutlookHandler().getVersion());

    // The override wins over every other place.
    writeFile(root() / "fake-outlook", "#!/bin/sh\nprintf 'override %s' \"$1\"\n");
    std::filesystem::permissions(root() / "fake-outlook", std::filesystem::perms::owner_all);
    setenv("VARNOTH_OUTLOOK_STANDIN", (root() / "fake-outlook").c_str(), 1);
    useAgentAt(installed / "varnoth-agent");
    EXPECT_EQ(OutlookHandler().getVersion(), "override getVersion");
}

} // namespace
} // namespace varnoth::test
