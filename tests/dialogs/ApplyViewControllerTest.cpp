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
class ApplyViewControllerTest : public AgentTest {
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
    void show(Action newAction, Action replyAction) {
        SignatureDescriptor answer;
        answer.defaultSignatureAction = newAction;
        answer.replySignatureAction = replyAction;
        show(answer);
    }
    // The message by its name, the button, the log and the messages that change Outlook.
    std::string look() {
        const std::map<std::string, std::string> messages = {
            {ApplyViewController::notChangedMessage, "not changed"},
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

// One dialog reused for every answer, while the administrator changes the permission between updates:
// dontchange/dontchange means "not changed" without the button; anything else follows the permission.
TEST_F(ApplyViewControllerTest, MessageAndButtonFollowTheLastAnswerAndTheCurrentConfiguration) {
    const Action actions[] = {Action::undefined, Action::change, Action::clear, Action::dontchange};
    std::ostringstream out;
    for (bool allowed : {true, false, true}) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  std::string("AllowConfigureDefaultSignatures=") + (allowed ? "1" : "0") + "\n");
        Config::setShared(nullptr);
        out << "allowed " << ApplyViewController(&view).allowAutomaticConfigure() << "\n";
        for (auto newAction : actions) {
            for (auto replyAction : actions) {
                show(newAction, replyAction);
                out << "== " << int(newAction) << "/" << int(replyAction) << "\n" << look();
            }
        }
    }
    expectGolden("dialogs/apply/message-and-button", out.str());
}

// Close only closes; each configure click logs, gets a fresh handler (which reuses the account already
// learned) and closes the window, also when there is nothing to apply or applying fails.
TEST_F(ApplyViewControllerTest, ConfigureAppliesTheAnswerWithAFreshHandlerPerClickAndAlwaysCloses) {
    expectTranscript("dialogs/apply/configure", [&](const std::string& step, const std::string& actions) {
        if (step == "show") { // "show" alone: no answer; "show N/R": the actions by number
            actions.empty() ? show(std::nullopt) : show(Action(actions[0] - '0'), Action(actions[2] - '0'));
        } else if (step == "forget-account") { // and Outlook no longer has one
            OutlookHandler::defaultAccount.reset(), outlook->script.account = "";
        } else {
            step == "close" ? controller->closeTapped() : controller->applyTapped();
        }
        const std::string text = look();
        return text::replaceAll(text.substr(0, text.size() - 1), "\n", "\n= ");
    });
}

} // namespace
} // namespace varnoth::test
