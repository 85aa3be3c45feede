#include "dialogs/ApplyViewController.h"
#include "base/TextValues.h"
#include "config/Config.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/dialogs/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

using Action = SignatureAction;

// Each test writes the dialog's message and button, the log and the messages that change Outlook into a
// transcript compared with tests/golden/dialogs/apply/.
class ApplyViewControllerTest : public AgentTest, public testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        outlook.emplace();
        controller.emplace(&view);
    }
    // What the update run does before it shows the window, then the window appearing.
    void show(std::optional<SignatureDescriptor> signature) {
        controller->signature = std::move(signature);
        controller->updateMessage();
        controller->viewWillAppear();
        clearLog();
    }
    // The message by its name, the button, the log and the messages that change Outlook.
    std::string look() {
        const std::map<std::string, std::string> messages = {
            {ApplyViewController::notChangedMessage, "not changed"},
            {ApplyViewController::installedMessage, "installed"},
            {ApplyViewController::automaticMessage, "automatic"},
            {ApplyViewController::manualMessage, "manual"}};
        std::ostringstream out;
        out << (messages.count(view.message) ? messages.at(view.message) : view.message)
            << "\n-- button hidden " << view.configureButtonHidden.value_or(-1) << ", automatic "
            << controller->allowAutomaticConfigure() << ", closed " << view.closes << ", loads "
            << outlook->script.loads << "\n"
            << joinLines(logLines());
        for (const auto& message : outlook->changes()) {
            out << "> " << message.selector << " " << joinLines(message.arguments);
        }
        clearLog();
        outlook->script.messages.clear();
        return out.str();
    }

    std::optional<ScriptedOutlook> outlook;
    FakeApplyView view;
    std::optional<ApplyViewController> controller; // made in SetUp: it reads the configuration
};

// Each scenario is a step file of tests/golden/dialogs/apply/. message_and_button: one dialog reused for
// every answer while the administrator changes the permission between updates; dontchange/dontchange means
// "not changed" without the button (or "installed" when further signatures were), anything else follows the
// permission. configure: close only closes; each
// configure click logs, gets a fresh handler (which reuses the account already learned) and closes the
// window, also when there is nothing to apply or applying fails.
TEST_P(ApplyViewControllerTest, StepsLeaveTheDialogOfTheirScenarioFile) {
    expectTranscript("dialogs/apply/" + GetParam(), [&](const std::string& step, const std::string& rest) {
        if (step == "show") { // "show" alone: no answer; "show N/R": the actions by number
            std::optional<SignatureDescriptor> answer;
            if (!rest.empty()) {
                answer.emplace().defaultSignatureAction = Action(rest[0] - '0');
                answer->replySignatureAction = Action(rest[2] - '0');
                if (rest.ends_with("+")) {
                    answer->additionalSignatures["Legal"] = "<p>Legal</p>";
                }
            }
            show(answer);
        } else if (step == "allow") { // the administrator's permission, as a new dialog reads it
            writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                      "AllowConfigureDefaultSignatures=" + rest + "\n");
            Config::setShared(nullptr), clearLog();
            return "allowed " + std::to_string(ApplyViewController(&view).allowAutomaticConfigure());
        } else if (step == "forget-account") { // and Outlook no longer has one
            OutlookHandler::defaultAccount.reset(), outlook->script.account = "";
        } else {
            step == "close" ? controller->closeTapped() : controller->applyTapped();
        }
        const std::string text = look();
        return text::replaceAll(text.substr(0, text.size() - 1), "\n", "\n= ");
    });
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ApplyViewControllerTest,
                         testing::Values("message_and_button", "configure"),
                         [](const auto& info) { return info.param; });

} // namespace
} // namespace varnoth::test
