#include "dialogs/ConfigurationViewController.h"
#include "config/Config.h"
#include "dialogs/ConfigurationView.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

#include <functional>
#include <iomanip>
#include <map>

namespace varnoth::test {
namespace {

using CheckState = ConfigurationView::CheckState;

// The fixture is the dialog's controls as plain state, laid out as the form starts them: box off and
// enabled, field empty and disabled, OK disabled.
class ConfigurationViewControllerTest : public AgentTest,
                                        public ConfigurationView,
                                        public testing::WithParamInterface<std::string> {
protected:
    std::string emailText() const override { return email; }
    void setEmailText(const std::string& text) override { email = text; }
    void setEmailInputEnabled(bool enabled) override { emailEnabled = enabled; }
    CheckState checkboxState() const override { return checkbox; }
    void setCheckboxState(CheckState state) override { checkbox = state; }
    void setCheckboxEnabled(bool enabled) override { checkboxEnabled = enabled; }
    void setOkButtonEnabled(bool enabled) override { okEnabled = enabled; }
    void setExplanation(const std::string& text) override { explanation = text; }
    void setHint(const std::string& text) override { hint = text; }
    void closeWindow() override { ++closes; }

    // The controls, whether the controller uses the address, and what is stored and in force.
    std::string look() {
        const char* states[] = {"off", "on", "mixed"};
        const auto stored = defaults.string("UserEmailAddress");
        std::ostringstream out;
        out << "box " << states[int(checkbox)] << (checkboxEnabled ? "" : " (disabled)") << ", field "
            << std::quoted(email) << (emailEnabled ? "" : " (disabled)") << ", OK " << okEnabled << ", use "
            << controller.useEmail() << ", closed " << closes << ", stored "
            << (stored ? '"' + *stored + '"' : "nothing") << ", in force "
            << std::quoted(Config::shared().UserEmailAddress()) << " editable "
            << Config::shared().UserEmailAddressEditable()
            << (explanation == ConfigurationViewController::fixedExplanation
                    ? ", says it is set by the organisation"
                : explanation == ConfigurationViewController::explanation ? ""
                                                                          : ", says " + explanation)
            << (hint.empty() ? "" : ", hint");
        return out.str();
    }

    std::string email, explanation = ConfigurationViewController::explanation, hint;
    bool emailEnabled = false;
    CheckState checkbox = CheckState::off;
    bool checkboxEnabled = true;
    bool okEnabled = false;
    int closes = 0;
    ConfigurationViewController controller{this};
};

// Each scenario is a file of tests/golden/dialogs/configuration/: steps, each followed by the controls it
// leaves (lines starting with "="), which the run writes anew and compares with the file.
TEST_P(ConfigurationViewControllerTest, StepsLeaveTheControlsOfTheirScenarioFile) {
    const std::map<std::string, std::function<void(const std::string&)>> steps = {
        {"fixed",
         [&](auto& address) {
             writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                       "UserEmailAddress=" + address + "\n");
         }},
        {"stored", [&](auto& address) { defaults.setString("UserEmailAddress", address); }},
        {"managed",
         [&](auto& address) {
             managed.values["UserEmailAddress"] = {PreferenceValue::Type::text, address};
         }},
        {"open", [&](auto&) { Config::setShared(nullptr), controller.viewWillAppear(); }},
        {"click",
         [&](auto&) {
             checkbox = checkbox == CheckState::on ? CheckState::off : CheckState::on;
             controller.useEmailChanged();
         }},
        {"mixed", [&](auto&) { checkbox = CheckState::mixed, controller.useEmailChanged(); }},
        {"use", [&](auto&) { controller.setUseEmail(true); }},
        {"type", // one edit per character
         [&](auto& text) {
             for (char c : text) {
                 email.push_back(c), controller.controlTextDidChange();
             }
         }},
        {"paste", [&](auto& text) { email = text, controller.controlTextDidChange(); }},
        {"cancel", [&](auto&) { controller.cancel(); }},
        {"ok", [&](auto&) { controller.submit(); }},
    };
    expectTranscript("dialogs/configuration/" + GetParam(),
                     [&](const std::string& verb, const std::string& text) {
                         steps.at(verb)(unescaped(text));
                         return look();
                     });
}

// opening: the address in force and whether it may be changed; validation: a checked box needs an "@"
// anywhere, unchecked or mixed nothing; storing: OK stores the text exactly or empty when unchecked, Cancel
// nothing.
INSTANTIATE_TEST_SUITE_P(Scenarios, ConfigurationViewControllerTest,
                         testing::Values("opening", "validation", "storing"),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace varnoth::test
