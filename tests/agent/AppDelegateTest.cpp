#include "agent/AppDelegate.h"
#include "base/TextValues.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <list>

namespace varnoth::test {
namespace {

using namespace std::chrono_literals;

class AppDelegateTest : public AgentTest, public testing::WithParamInterface<std::string> {
protected:
    static constexpr const char* system = "is macOS Version 14.5 (Build 23F79)\n";
    // The log since the last look, with the test's folder and the host's system made stable.
    std::string look() {
        std::string text = joinLines(logLines());
        clearLog();
        return text::replaceAll(text::replaceAll(text, root().string(), "<root>"), system, "is <system>\n");
    }
};

// Each scenario is a step file of tests/golden/agent/; a step's answer is its result, if any, then the log
// it wrote. "agent" makes an agent; the steps after it act on the last one made.
TEST_P(AppDelegateTest, StepsLogWhatTheirScenarioFileHolds) {
    XdgAutostartLoginItem loginItem; // with the setting, the entry in the test's folder
    Platform::Ports ports = Platform::ports();
    ports.loginItem = &loginItem;
    ports.bundle.executablePath = "/opt/varnoth/bin/varnoth-agent";
    Platform::install(ports);
    const auto entry = root() / "home/.config/autostart/com.varnoth.brelvane-agent.desktop";
    std::list<AppDelegate> apps;
    std::string result;
    const auto state = [&] {
        result = "started " + std::to_string(apps.back().engineStarted()) + ", observers " +
                 std::to_string(accessibility.observerCount()) + ", timers " +
                 std::to_string(queue.activeTimerCount());
    };
    const std::map<std::string, std::function<void(const std::string&)>> steps = {
        {"configure",
         [&](auto& text) {
             writeFile(userConfigFolder() / "Varnoth Brelvane Agent.txt", text), Config::setShared(nullptr);
         }},
        {"untrusted", [&](auto&) { accessibility.trusted = false; }},
        {"nameless", [&](auto&) { host.computer.reset(); }},
        {"agent", [&](auto&) { apps.emplace_back(); }},
        {"launch", [&](auto&) { apps.back().applicationDidFinishLaunching(); }},
        {"start-engine", [&](auto&) { apps.back().startEngine(); }},
        {"set-up", [&](auto&) { apps.back().setUpAgent(), state(); }},
        {"deliver", [&](auto&) { accessibility.deliver(), state(); }},
        {"wait", [&](auto& ms) { queue.advance(std::chrono::milliseconds(std::stoi(ms))), state(); }},
        {"rebuild", [&](auto&) { apps.back().statusMenu().constructMenu(); }},
        {"choose", [&](auto& title) { statusItem.choose(title); }},
        {"no-opener", [&](auto&) { workspace.opens = false; }},
        {"terminate", [&](auto&) { apps.back().applicationWillTerminate(); }},
        {"entry", [&](auto& text) { writeFile(entry, text); }},
        {"no-entry", [&](auto&) { std::filesystem::remove(entry); }},
        // The installer's entry for every user, and the administrator's forced choice ("true", "false").
        {"system-entry",
         [&](auto& text) { writeFile(root() / "etc/xdg/autostart" / entry.filename(), text); }},
        {"forced",
         [&](auto& value) {
             managed.values[StatusMenu::launchAtLoginKey] = {PreferenceValue::Type::boolean, value};
         }},
        // The menu's entries, "-" for a separator and a box before a checkable one; then the login item.
        {"menu",
         [&](auto&) {
             for (const auto& item : statusItem.menu) {
                 result += item.kind == MenuItem::Kind::separator ? "-\n"
                           : item.checkable ? std::string(item.enabled ? "" : "(off) ") +
                                                  (item.checked ? "[x] " : "[ ] ") + item.title + "\n"
                                            : item.title + "\n";
             }
             result += std::string(loginItem.isInstalled() ? "installed" : "not installed") +
                       (std::filesystem::exists(entry) ? ", entry\n" : ", no entry\n");
         }},
        {"agent-job",
         [&](auto&) { result = apps.back().agent().label + " runs " + *apps.back().agent().program(); }},
        {"minutes",
         [&](auto& value) {
             result = std::to_string(AppDelegate::updateInterval(std::stof(value)).count()) + "ms";
         }},
        {"timer",
         [&](auto&) { result = std::to_string(apps.back().updateTimer()->interval().count()) + "ms"; }},
        {"desktop",
         [&](auto&) {
             result = "icons " + joinLines(statusItem.images) + "prompts";
             for (const bool prompt : accessibility.prompts) {
                 result += " " + std::to_string(prompt);
             }
             result += "\nabout panels " + std::to_string(application.aboutPanels) + ", terminations " +
                       std::to_string(application.terminations) + ", opened";
             for (const auto& path : workspace.opened) {
                 result += " " + path.filename().string();
             }
             for (const auto& alert : alerts.shown) {
                 result += "\nalert " + alert.title + ": " + alert.message;
             }
         }},
    };
    expectTranscript("agent/" + GetParam(), [&](const std::string& step, const std::string& rest) {
        result.clear();
        steps.at(step)(unescaped(rest));
        const std::string text = text::replaceAll(result, root().string(), "<root>") +
                                 (result.empty() || result.ends_with("\n") ? "" : "\n") + look();
        return text::replaceAll(text.substr(0, text.size() - 1), "\n", "\n= ");
    });
}

// start-up: the trusted start's sequence in order; untrusted-start: waiting for the permission's
// notification and starting once half a second later; menu: the entries follow the configuration and their
// actions are logged; launch-at-login: the check mark and the autostart entry move together only with the
// setting; update-interval: the timer's interval follows UpdateFrequency within its bounds.
INSTANTIATE_TEST_SUITE_P(Scenarios, AppDelegateTest,
                         testing::Values("start_up", "untrusted_start", "menu", "launch_at_login",
                                         "update_interval"),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace varnoth::test
