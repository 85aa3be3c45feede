#include "platform/posix/ProcessScriptHost.h"
#include "platform/Platform.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <cerrno>
#include <csignal>

namespace varnoth::test {
namespace {

// Small programs in place of the bundle's Outlook script, run as real child processes.
class ProcessScriptHostTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        auto ports = Platform::ports();
        ports.scriptHost = &host;
        ports.bundle.resourcesFolder = resources();
        ports.bundle.executablePath = root() / "bin/varnoth-agent";
        Platform::install(ports);
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

// Empty output is no answer; a failing, crashing or hanging script, output that is not UTF-8 and an
// argument holding NUL (refused without running the script) fail the message.
TEST_F(ProcessScriptHostTest, FailingCrashingAndHangingScriptsInvalidUtf8AndNulArgumentsFailTheirMessage) {
    writeScript("case \"$1\" in\n"
                "  getVersion) ;;\n"
                "  getDefaultAccount) printf '\\377\\376' ;;\n"
                "  getSignature:) echo 'Outlook is gone' >&2; exit 1 ;;\n"
                "  deleteSignature:) ulimit -c 0; kill -SEGV $$ ;;\n"
                "  createSignature:content:) echo $$ >\"$0.pid\"; exec sleep 60 ;;\n"
                "  deleteSignatures) exec >&- 2>&-; echo $$ >\"$0.pid\"; exec sleep 60 ;;\n"
                "  *) touch \"$0.ran\" ;;\n"
                "esac\n");
    for (const auto& [selector, arguments, error] :
         std::vector<std::tuple<std::string, std::vector<std::string>, std::string>>{
             {"getVersion", {}, ""},
             {"getDefaultAccount", {}, "not UTF-8"},
             {"getSignature:", {"x"}, "Outlook is gone"},
             {"deleteSignature:", {"x"}, "signal"},
             {"applySignaturesFor:", {std::string("a\0b", 3)}, "NUL"}}) {
        const ScriptReply reply = send(selector, arguments);
        EXPECT_EQ(reply.delivered, error.empty()) << selector;
        EXPECT_FALSE(reply.text) << selector;
        EXPECT_NE(reply.error.find(error), std::string::npos) << reply.error;
    }
    EXPECT_FALSE(std::filesystem::exists(resources() / "OutlookScriptObj.ran"));

    ProcessScriptHost impatient{std::chrono::milliseconds(300)};
    impatient.loadScripts();
    // The child was killed and reaped, not left behind; also one that closed its output first.
    for (const char* selector : {"createSignature:content:", "deleteSignatures"}) {
        EXPECT_FALSE(impatient.makeObject("OutlookScriptObj")->send(selector, {}).delivered) << selector;
        const pid_t pid = std::stoi(readWholeFile(resources() / "OutlookScriptObj.pid"));
        EXPECT_EQ(::kill(pid, 0), -1);
        EXPECT_EQ(errno, ESRCH);
    }
}

TEST_F(ProcessScriptHostTest, NoObjectWithoutAnExecutableResourceOfThatName) {
    host.loadScripts();
    EXPECT_FALSE(host.makeObject("OutlookScriptObj")); // no resource yet
    writeScript("exit 0\n", std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_FALSE(host.makeObject("OutlookScriptObj")); // not executable
    writeScript("exit 0\n");
    EXPECT_TRUE(host.makeObject("OutlookScriptObj"));
    EXPECT_TRUE(ProcessScriptHost().makeObject("OutlookScriptObj")); // loads the scripts itself
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

} // namespace
} // namespace varnoth::test
