#include "base/TextValues.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/ProcessScriptHost.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"
#include "tools/outlook-standin/OutlookStandInStore.h"

#include <map>

namespace varnoth::test {
namespace {

using Arguments = std::vector<std::string>;
using OutlookStandInTest = AgentTest;

// Control bytes written out, so that any text is one transcript line.
std::string shown(const std::optional<std::string>& text) {
    std::string out = text.value_or("(none)");
    for (std::size_t at = 0; at < out.size(); ++at) {
        if (const unsigned char c = out[at]; c < 0x20) {
            out.replace(at, 1,
                        c == '\n' ? "\\n" : "\\x" + std::to_string(c >> 4) + "0123456789ABCDEF"[c & 15]);
        }
    }
    return out;
}

// The stand-in's store in the test's own data folder; the agent's real script resource runs the real
// stand-in program, found from where the agent's executable is.
TEST_F(OutlookStandInTest, StoreHandlerScriptAndProgramStepByStep) {
    for (const char* name : {"VARNOTH_OUTLOOK_STANDIN", "VARNOTH_OUTLOOK_ACCOUNT", "VARNOTH_OUTLOOK_VERSION",
                             "VARNOTH_OUTLOOK_FORM"}) {
        setEnvironment(name, std::nullopt);
    }
    OutlookStandInStore store(OutlookStandInStore::defaultFolder());
    ASSERT_EQ(store.folder(), root() / "home/.local/share/Varnoth/Outlook");
    OutlookHandler::defaultAccount.reset();
    ProcessScriptHost host{std::chrono::seconds(60)};
    std::optional<OutlookHandler> handler;
    const auto link = [&](const std::string& folder) {
        std::filesystem::create_directories(root() / folder);
        std::filesystem::create_symlink(VARNOTH_TEST_STANDIN, root() / folder / "varnoth-outlook-standin");
    };
    // Where the agent's executable is decides where the script looks for the stand-in.
    const auto agentAt = [&](const std::string& executable) {
        auto ports = Platform::ports();
        ports.scriptHost = &host;
        ports.bundle.resourcesFolder = VARNOTH_TEST_RESOURCES;
        ports.bundle.executablePath = root() / executable;
        Platform::install(ports);
    };
    const auto run = [&](Arguments words) {
        const std::string input = words.back();
        words.pop_back();
        const auto result =
            PosixProcessLauncher().run({VARNOTH_TEST_STANDIN, words, input, std::chrono::seconds(30), {}});
        return "exit " + std::to_string(result.exitCode) + ": " + shown(result.output);
    };
    const Arguments actions = {"undefined", "change", "clear", "dontchange"};
    const auto action = [&](auto& name) {
        return SignatureAction(std::ranges::find(actions, name) - actions.begin());
    };
    const std::map<std::string, std::function<std::string(const Arguments&)>> steps = {
        {"create", [&](auto& a) { return store.createSignature(a[0], a[1]), shown(store.signature(a[0])); }},
        {"show", [&](auto& a) { return shown(store.signature(a[0])); }},
        {"write", [&](auto& a) { return writeFile(store.folder() / a[0], a[1]), ""; }},
        {"default-new", [&](auto& a) { return store.setDefaultNewSignature(a[0], a[1]), ""; }},
        {"delete", [&](auto& a) { return store.deleteSignature(a[0]), ""; }},
        {"env", [&](auto& a) { return setEnvironment(a[0].c_str(), a[1]), ""; }},
        {"run", run},
        {"handler", [&](auto&) { return handler.emplace(), shown(OutlookHandler::defaultAccount); }},
        {"create-via", [&](auto& a) { return std::to_string(handler->createSignature(a[0], a[1])); }},
        {"get-via", [&](auto& a) { return shown(handler->makeScriptObject()->getSignature(a[0])); }},
        {"new-needs-update",
         [&](auto& a) { return std::to_string(handler->defaultNewSignatureNeedsUpdate(a[0])); }},
        {"create-new", [&](auto& a) { return std::to_string(handler->createDefaultNewSignature(a[0])); }},
        {"create-reply", [&](auto& a) { return std::to_string(handler->createDefaultReplySignature(a[0])); }},
        {"apply",
         [&](auto& a) {
             return std::to_string(handler->applyDefaultSignatures(action(a[0]), action(a[1])));
         }},
        {"delete-new", [&](auto&) { return handler->deleteDefaultNewSignature(), ""; }},
        {"delete-via", [&](auto& a) { return handler->deleteSignature(a[0]), ""; }},
        {"delete-all-via", [&](auto&) { return handler->deleteSignatures(), ""; }},
        {"send",
         [&](auto& a) {
             const auto reply = host.makeObject("OutlookScriptObj")->send(a[0], {a.begin() + 1, a.end()});
             return std::to_string(reply.delivered) + ", text " + shown(reply.text);
         }},
        {"installed-in", [&](auto& a) { return link(a[0]), agentAt(a[0] + "/varnoth-agent"), ""; }},
        {"agent-at", [&](auto& a) { return agentAt(a[0]), ""; }},
        {"version", [&](auto&) { return shown(OutlookHandler().getVersion()); }},
    };
    // A build tree as CMake lays it out: the agent in app/ (not built here), the stand-in under tools/.
    link("build/tools/outlook-standin");
    agentAt("build/app/varnoth-agent");
    expectTranscript("outlook/standin", [&](const std::string& word, const std::string& rest) {
        const Arguments arguments = caseArguments(rest);
        try {
            const std::string answer = text::replaceAll(steps.at(word)(arguments), root().string(), "<root>");
            return answer.empty() ? "ok" : answer;
        } catch (const std::runtime_error& error) {
            return std::string("throws ") + error.what();
        }
    });
}

} // namespace
} // namespace varnoth::test
