#include "dialogs/ApplyViewController.h"
#include "config/Config.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/dialogs/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"

#include <algorithm>

namespace varnoth::test {
namespace {

using Lines = std::vector<std::string>;
using Action = SignatureAction;

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
    long count(const std::string& line) const {
        const auto lines = logLines();
        return std::count(lines.begin(), lines.end(), line);
    }

    std::optional<ScriptedOutlook> outlook;
    FakeApplyView view;
    std::optional<ApplyViewController> controller; // made in SetUp: it reads the configuration
};

// One dialog reused for every answer, while the administrator changes the permission between updates:
// dontchange/dontchange means "not changed" without the button; anything else follows the permission.
TEST_F(ApplyViewControllerTest, MessageAndButtonFollowTheLastAnswerAndTheCurrentConfiguration) {
    const Action actions[] = {Action::undefined, Action::change, Action::clear, Action::dontchange};
    for (bool allowed : {true, false, true}) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  std::string("AllowConfigureDefaultSignatures=") + (allowed ? "1" : "0") + "\n");
        Config::setShared(nullptr);
        EXPECT_EQ(ApplyViewController(&view).allowAutomaticConfigure(), allowed);
        for (auto newAction : actions) {
            for (auto replyAction : actions) {
                SCOPED_TRACE(testing::Message()
                             << allowed << " " << int(newAction) << "/" << int(replyAction));
                show(newAction, replyAction);
                const bool same = newAction == Action::dontchange && replyAction == Action::dontchange;
                EXPECT_EQ(view.message, same      ? ApplyViewController::notChangedMessage
                                        : allowed ? ApplyViewController::automaticMessage
                                                  : ApplyViewController::manualMessage);
                EXPECT_EQ(controller->allowAutomaticConfigure(), allowed && !same);
                EXPECT_EQ(view.configureButtonHidden, !allowed || same);
            }
        }
    }
}

// Close only closes; each configure click logs, gets a fresh handler (which reuses the account already
// learned) and closes the window, also when there is nothing to apply or applying fails. The handler's
// own lines are checked with the handler.
TEST_F(ApplyViewControllerTest, ConfigureAppliesTheAnswerWithAFreshHandlerPerClickAndAlwaysCloses) {
    show(std::nullopt);
    EXPECT_EQ(view.message, ApplyViewController::manualMessage);
    EXPECT_EQ(view.configureButtonHidden, true);
    controller->applyTapped();
    EXPECT_EQ(logLines(), (Lines{"Configure default signature clicked", "Error: no signatures to apply"}));
    EXPECT_EQ(outlook->script.loads, 0);

    show(Action::dontchange, Action::change);
    controller->closeTapped();
    EXPECT_TRUE(logLines().empty());
    EXPECT_TRUE(outlook->script.messages.empty());
    EXPECT_EQ(view.closes, 2);
    for (int click = 1; click <= 2; ++click) {
        controller->applyTapped();
        EXPECT_EQ(logLines().front(), "Configure default signature clicked");
        EXPECT_EQ(logLines().back(), "Signatures applied successfully with automation");
        EXPECT_EQ(outlook->script.loads, click);
        EXPECT_EQ(count("Getting default Outlook account name"), 1);
    }
    EXPECT_EQ(outlook->changes(), (std::vector<RecordingScriptHost::Message>(
                                      2, {"applyDefaultReplySignatureFor:", {"jane@example.com"}})));
    EXPECT_EQ(view.closes, 4);

    OutlookHandler::defaultAccount.reset();
    outlook->script.account = "";
    show(Action::change, Action::clear);
    controller->applyTapped();
    EXPECT_EQ(logLines().back(), "Error: failed to apply signatures");
    EXPECT_EQ(count("Signatures applied successfully with automation"), 0);
    EXPECT_EQ(view.closes, 5);
}

} // namespace
} // namespace varnoth::test
