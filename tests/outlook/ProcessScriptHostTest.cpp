#include "platform/ProcessScriptHost.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <cerrno>
#include <csignal>
#include <fstream>

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;

// Small programs in place of the bundle's Outlook script, run as real child processes.
class ProcessScriptHostTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        OutlookHandler::defaultAccount.reset();
        auto ports = Platform::ports();
        ports.scriptHost = &host;
        ports.bundle.resourcesFolder = resources();
        ports.bundle.executablePath = root() / "bin/varnoth-agent";
        Platform::install(ports);
    }
    void TearDown() override {
        OutlookHandler::defaultAccount.reset();
        AgentTest::TearDown();
    }

    std::filesystem::path resources() const { return root() / "Resources"; }
    void writeScript(const std::string& body,
                     std::filesystem::perms permissions = std::filesystem::perms::owner_all) {
        writeFile(resources() / "OutlookScriptObj", "#!/bin/sh\n" + body);
        std::filesystem::permissions(resources() / "OutlookScriptObj", permissions);
    }
    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) {
        host.loadScripts();
        auto object = host.makeObject("OutlookScriptObj");
        return object ? object->send(selector, arguments) : ScriptReply::failed("no script object");
    }

    ProcessScriptHost host{std::chrono::seconds(30)};
};

TEST_F(ProcessScriptHostTest, SelectorArgumentsAndAnswerPassUnchanged) {
    // Echoes its input, and notes its command line and environment beside itself.
    writeScript("printf '%s|%s|%s' \"$#\" \"$1\" \"$VARNOTH_AGENT_EXECUTABLE\" >\"$0.seen\"\nexec cat\n");
    const std::string name = "a/b \"c\" 'd' $HOME `x` \\ * ;\n\u00E9\u4E2D\U0001F600";
    std::string html = "<html>\r\n";
    while (html.size() < (1u << 20)) {
        html += "<p style=\"color:#123\">caf\u00E9 \u2014 'quote' \"dq\" $(rm -rf /) \t line</p>\n";
    }
    const ScriptReply reply = send("createSignature:content:", {name, html});
    ASSERT_TRUE(reply.delivered) << reply.error;
    EXPECT_TRUE(reply.text == name + '\0' + html + '\0'); // too large to print on a mismatch
    EXPECT_EQ(readWholeFile(resources() / "OutlookScriptObj.seen"),
              "1|createSignature:content:|" + (root() / "bin/varnoth-agent").string());
}

TEST_F(ProcessScriptHostTest, EmptyOutputIsNoAnswerAndInvalidUtf8IsAFailure) {
    writeScript("case \"$1\" in getVersion) ;; *) printf '\\377\\376' ;; esac\n");
    const ScriptReply empty = send("getVersion", {});
    EXPECT_TRUE(empty.delivered);
    EXPECT_FALSE(empty.text);
    EXPECT_FALSE(send("getDefaultAccount", {}).delivered);
}

TEST_F(ProcessScriptHostTest, FailingCrashingAndHangingScriptsAndNulArgumentsFailTheirMessage) {
    writeScript("case \"$1\" in\n"
                "  getVersion) echo 'Outlook is gone' >&2; exit 1 ;;\n"
                "  getDefaultAccount) ulimit -c 0; kill -SEGV $$ ;;\n"
                "  getSignature:) echo $$ >\"$0.pid\"; exec sleep 60 ;;\n"
                "  *) touch \"$0.ran\" ;;\n"
                "esac\n");
    const ScriptReply failed = send("getVersion", {});
    EXPECT_FALSE(failed.delivered);
    EXPECT_NE(failed.error.find("Outlook is gone"), std::string::npos) << failed.error;
    const ScriptReply crashed = send("getDefaultAccount", {});
    EXPECT_FALSE(crashed.delivered);
    EXPECT_NE(crashed.error.find("signal"), std::string::npos) << crashed.error;

    // An argument holding NUL is refused without running the script.
    EXPECT_FALSE(send("deleteSignature:", {std::string("a\0b", 3)}).delivered);
    EXPECT_FALSE(std::filesystem::exists(resources() / "OutlookScriptObj.ran"));

    ProcessScriptHost impatient{std::chrono::milliseconds(300)};
    impatient.loadScripts();
    EXPECT_FALSE(impatient.makeObject("OutlookScriptObj")->send("getSignature:", {"x"}).delivered);
    // The child was killed and reaped, not left behind.
    const pid_t pid = std::stoi(readWholeFile(resources() / "OutlookScriptObj.pid"));
    EXPECT_EQ(::kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(ProcessScriptHostTest, NoObjectWithoutAnExecutableResourceOfThatName) {
    host.loadScripts();
    EXPECT_FALSE(host.makeObject("OutlookScriptObj")); // no resource yet
    writeScript("exit 0\n", std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_FALSE(host.makeObject("OutlookScriptObj")); // not executable
    writeScript("exit 0\n");
    EXPECT_TRUE(host.makeObject("OutlookScriptObj"));
    for (const char* other : {"Other", "../Resources/OutlookScriptObj", ""}) {
        EXPECT_FALSE(host.makeObject(other)) << other;
    }
    // A program started without waiting for it (the way files are opened) reports only its start.
    EXPECT_TRUE(PosixProcessLauncher().launch("/bin/true", {}));
    EXPECT_FALSE(PosixProcessLauncher().launch(root() / "missing", {}));
    // The folder is taken when the scripts are loaded: a bundle without resources has no classes.
    auto ports = Platform::ports();
    ports.bundle.resourcesFolder.clear();
    Platform::install(ports);
    host.loadScripts();
    EXPECT_FALSE(host.makeObject("OutlookScriptObj"));
}

TEST_F(ProcessScriptHostTest, HandlerOverAScriptThatLacksOperationsKeepsGoing) {
    writeScript("case \"$1\" in\n"
                "  getVersion) printf '16.1' ;;\n"
                "  getDefaultAccount) printf 'me@example.com' ;;\n"
                "  *) echo \"unrecognized selector $1\" >&2; exit 2 ;;\n"
                "esac\n");
    OutlookHandler handler;
    EXPECT_EQ(OutlookHandler::defaultAccount, "me@example.com");
    clearLog();
    EXPECT_FALSE(handler.createSignature("Team", "<p>team</p>"));
    EXPECT_TRUE(handler.defaultNewSignatureNeedsUpdate("<p>new</p>"));
    EXPECT_FALSE(handler.applyDefaultSignatures(SignatureAction::change, SignatureAction::change));
    EXPECT_EQ(logLines(),
              (Lines{"Creating signature Team", "Error: failed to create signature Team",
                     "Error: cannot get default Outlook signature", "Applying default signature",
                     "Automation will set both signatures", "Error: failed to apply signatures"}));
}

} // namespace
} // namespace varnoth::test
