#include "dialogs/ApplyViewController.h"
#include "config/Config.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/dialogs/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"
#include "tests/support/Golden.h"

namespace varnoth::test {
namespace {

using Action = SignatureAction;

// Each test writes the dialog's message and button, the log and the messages that change Outlook into a
// transcript compared with tests/golden/dialogs/apply/<test>.txt.
class ApplyViewControllerTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        outlook.emplace();
        controller.emplace(&view);
    }
    void TearDown() override {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        expectGolden(std::string("dialogs/apply/") + test->name(), out.str());
        AgentTest::TearDown();
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
    void look(const std::string& step) {
        const std::map<std::string, std::string> messages = {
            {ApplyViewController::notChangedMessage, "not changed"},
            {ApplyViewController::automaticMessage, "automatic"},
            {ApplyViewController::manualMessage, "manual"}};
        out << "== " << step << "\n"
            << (messages.count(view.message) ? messages.at(view.message) : view.message)
            << "\n-- button hidden " << view.configureButtonHidden.value_or(-1) << ", automatic "
            << controller->allowAutomaticConfigure() << ", closed " << view.closes << ", loads "
            << outlook->script.loads << "\n"
            << joinLines(logLines());
        for (const auto& message : outlook->changes()) {
            out << "> " << message.selector << " " << joinLines(message.arguments);
        }
        clearLog();
        outlook->script.messages.clear();
    }

    std::optional<ScriptedOutlook> outlook;
    FakeApplyView view;
    std::optional<ApplyViewController> controller; // made in SetUp: it reads the configuration
    std::ostringstream out;
};

// One dialog reused for every answer, while the administrator changes the permission between updates:
// dontchange/dontchange means "not changed" without the button; anything else follows the permission.
TEST_F(ApplyViewControllerTest, MessageAndButtonFollowTheLastAnswerAndTheCurrentConfiguration) {
    const Action actions[] = {Action::undefined, Action::change, Action::clear, Action::dontchange};
    for (bool allowed : {true, false, true}) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  std::string("AllowConfigureDefaultSignatures=") + (allowed ? "1" : "0") + "\n");
        Config::setShared(nullptr);
        out << "allowed " << ApplyViewController(&view).allowAutomaticConfigure() << "\n";
        for (auto newAction : actions) {
            for (auto replyAction : actions) {
                show(newAction, replyAction);
                look(std::to_string(int(newAction)) + "/" + std::to_string(int(replyAction)));
            }
        }
    }
}

// Close only closes; each configure click logs, gets a fresh handler (which reuses the account already
// learned) and closes the window, also when there is nothing to apply or applying fails.
TEST_F(ApplyViewControllerTest, ConfigureAppliesTheAnswerWithAFreshHandlerPerClickAndAlwaysCloses) {
    show(std::nullopt);
    controller->applyTapped();
    look("nothing to apply");
    show(Action::dontchange, Action::change);
    controller->closeTapped();
    look("closed");
    controller->applyTapped();
    look("first click");
    controller->applyTapped();
    look("second click");
    OutlookHandler::defaultAccount.reset();
    outlook->script.account = "";
    show(Action::change, Action::clear);
    controller->applyTapped();
    look("no account");
}

} // namespace
} // namespace varnoth::test
