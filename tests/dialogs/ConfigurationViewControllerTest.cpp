#include "dialogs/ConfigurationViewController.h"
#include "config/Config.h"
#include "dialogs/ConfigurationView.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <fstream>
#include <functional>
#include <iomanip>
#include <map>

namespace varnoth::test {
namespace {

using CheckState = ConfigurationView::CheckState;

// The fixture is the dialog's controls as plain state, laid out as the form starts them: box off and
// enabled, field empty and disabled, OK disabled.
class ConfigurationViewControllerTest : public AgentTest, public ConfigurationView {
protected:
    std::string emailText() const override { return email; }
    void setEmailText(const std::string& text) override { email = text; }
    void setEmailInputEnabled(bool enabled) override { emailEnabled = enabled; }
    CheckState checkboxState() const override { return checkbox; }
    void setCheckboxState(CheckState state) override { checkbox = state; }
    void setCheckboxEnabled(bool enabled) override { checkboxEnabled = enabled; }
    void setOkButtonEnabled(bool enabled) override { okEnabled = enabled; }
    void closeWindow() override { ++closes; }

    void play(const std::string& scenario);
    // What the user does: click the box, type into the field (one edit per character).
    void clickCheckbox() {
        checkbox = checkbox == CheckState::on ? CheckState::off : CheckState::on;
        controller.useEmailChanged();
    }
    void type(const std::string& text) {
        for (char c : text) {
            email.push_back(c);
            controller.controlTextDidChange();
        }
    }
    // The controls, whether the controller uses the address, and what is stored and in force.
    void look(const std::string& step) {
        const char* states[] = {"off", "on", "mixed"};
        const auto stored = defaults.string("UserEmailAddress");
        out << step << "\n= box " << states[int(checkbox)] << (checkboxEnabled ? "" : " (disabled)")
            << ", field " << std::quoted(email) << (emailEnabled ? "" : " (disabled)") << ", OK " << okEnabled
            << ", use " << controller.useEmail() << ", closed " << closes << ", stored "
            << (stored ? '"' + *stored + '"' : "nothing") << ", in force "
            << std::quoted(Config::shared().UserEmailAddress()) << " editable "
            << Config::shared().UserEmailAddressEditable() << "\n";
    }

    std::string email;
    bool emailEnabled = false;
    CheckState checkbox = CheckState::off;
    bool checkboxEnabled = true;
    bool okEnabled = false;
    int closes = 0;
    ConfigurationViewController controller{this};
    std::ostringstream out;
};

// Each scenario is a file of tests/golden/dialogs/configuration/: steps, each followed by the controls it
// leaves (lines starting with "="), which the run writes anew and compares with the file.
void ConfigurationViewControllerTest::play(const std::string& scenario) {
    const std::map<std::string, std::function<void(const std::string&)>> steps = {
        {"fixed",
         [&](auto& address) {
             writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                       "UserEmailAddress=" + address + "\n");
         }},
        {"stored", [&](auto& address) { defaults.setString("UserEmailAddress", address); }},
        {"open", [&](auto&) { Config::setShared(nullptr), controller.viewWillAppear(); }},
        {"click", [&](auto&) { clickCheckbox(); }},
        {"mixed", [&](auto&) { checkbox = CheckState::mixed, controller.useEmailChanged(); }},
        {"use", [&](auto&) { controller.setUseEmail(true); }},
        {"type", [&](auto& text) { type(text); }},
        {"paste", [&](auto& text) { email = text, controller.controlTextDidChange(); }},
        {"cancel", [&](auto&) { controller.cancel(); }},
        {"ok", [&](auto&) { controller.submit(); }},
    };
    const std::string name = "dialogs/configuration/" + scenario;
    std::ifstream file(std::string(VARNOTH_GOLDEN_DIR) + "/" + name + ".txt");
    for (std::string line, verb, argument; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            out << line << "\n";
        } else if (line[0] != '=') {
            std::istringstream(line) >> verb >> std::quoted(argument);
            ASSERT_TRUE(steps.count(verb)) << line;
            steps.at(verb)(argument);
            look(line);
        }
    }
    expectGolden(name, out.str());
}

TEST_F(ConfigurationViewControllerTest, OpeningShowsTheAddressInForceAndWhetherItMayBeChanged) {
    play("opening");
}

TEST_F(ConfigurationViewControllerTest, CheckedBoxNeedsAnAtSignAnywhereWhileUncheckedOrMixedNeedsNothing) {
    play("validation");
}

TEST_F(ConfigurationViewControllerTest, OkStoresTheTextExactlyOrEmptyWhenUncheckedAndCancelNothing) {
    play("storing");
}

} // namespace
} // namespace varnoth::test
