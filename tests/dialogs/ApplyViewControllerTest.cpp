#include "dialogs/ApplyViewController.h"
#include "config/Config.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/dialogs/ScriptedOutlook.h"
#include "tests/support/AgentTest.h"

#include <algorithm>
#include <array>

namespace varnoth::test {
namespace {

using Messages = std::vector<RecordingScriptHost::Message>;
using Lines = std::vector<std::string>;

SignatureDescriptor answer(SignatureAction newAction, SignatureAction replyAction) {
    SignatureDescriptor descriptor;
    descriptor.defaultSignature = "<p>New</p>";
    descriptor.replySignature = "<p>Reply</p>";
    descriptor.defaultSignatureAction = newAction;
    descriptor.replySignatureAction = replyAction;
    return descriptor;
}

class ApplyViewControllerTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        outlook.emplace();
        controller.emplace(&view);
    }

    void allowConfigure(bool allowed) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  std::string("AllowConfigureDefaultSignatures=") + (allowed ? "1" : "0") + "\n");
        Config::setShared(nullptr);
    }

    // What the update run does before it shows the window, then the window appearing.
    void updateAndAppear(std::optional<SignatureDescriptor> signature) {
        controller->signature = std::move(signature);
        controller->updateMessage();
        controller->viewWillAppear();
    }

    std::optional<ScriptedOutlook> outlook;
    FakeApplyView view;
    std::optional<ApplyViewController> controller; // made in SetUp: it reads the configuration
};

// One dialog reused for every answer, while the administrator changes the permission between updates:
// dontchange/dontchange means "not changed" without the button; anything else follows the permission.
TEST_F(ApplyViewControllerTest, MessageAndButtonFollowTheLastAnswerAndTheCurrentConfiguration) {
    EXPECT_FALSE(controller->signature.has_value());
    constexpr std::array actions = {SignatureAction::undefined, SignatureAction::change,
                                    SignatureAction::clear, SignatureAction::dontchange};
    for (bool allowed : {true, false, true}) {
        allowConfigure(allowed);
        EXPECT_EQ(ApplyViewController(&view).allowAutomaticConfigure(), allowed);
        for (auto newAction : actions) {
            for (auto replyAction : actions) {
                SCOPED_TRACE(testing::Message() << "allowed " << allowed << ", actions " << int(newAction)
                                                << "/" << int(replyAction));
                updateAndAppear(answer(newAction, replyAction));
                const bool notChanged =
                    newAction == SignatureAction::dontchange && replyAction == SignatureAction::dontchange;
                EXPECT_EQ(view.message, notChanged ? ApplyViewController::notChangedMessage
                                        : allowed  ? ApplyViewController::automaticMessage
                                                   : ApplyViewController::manualMessage);
                EXPECT_EQ(controller->allowAutomaticConfigure(), allowed && !notChanged);
                EXPECT_EQ(view.configureButtonHidden, !allowed || notChanged);
            }
        }
    }
}

TEST_F(ApplyViewControllerTest, WithoutAnswerNothingIsOfferedAndConfigureOnlyLogsAndCloses) {
    updateAndAppear(std::nullopt);
    EXPECT_EQ(view.message, ApplyViewController::manualMessage);
    EXPECT_EQ(view.configureButtonHidden, true);

    clearLog();
    controller->applyTapped();
    EXPECT_EQ(logLines(), (Lines{"Configure default signature clicked", "Error: no signatures to apply"}));
    EXPECT_TRUE(outlook->script.messages.empty());
    EXPECT_EQ(outlook->script.loads, 0);
    EXPECT_EQ(view.closes, 1);
}

TEST_F(ApplyViewControllerTest,
       ConfigureWithOnlyReplyToChangeSendsOnlyTheReplyMessageFromAFreshHandlerPerClick) {
    updateAndAppear(answer(SignatureAction::dontchange, SignatureAction::change));
    ASSERT_EQ(view.message, ApplyViewController::automaticMessage);
    ASSERT_EQ(view.configureButtonHidden, false);

    clearLog();
    controller->applyTapped();
    EXPECT_EQ(outlook->changes(), (Messages{{"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_EQ(logLines(), (Lines{"Configure default signature clicked", "Outlook 16.89 is installed",
                                 "Getting default Outlook account name",
                                 "Successfully got default Outlook account name: jane@example.com",
                                 "Applying default signature", "Automation will set reply signature",
                                 "Applied default signatures successfully",
                                 "Signatures applied successfully with automation"}));
    EXPECT_EQ(view.closes, 1);

    // A second click gets a fresh handler, which reuses the account learned by the first.
    controller->applyTapped();
    EXPECT_EQ(outlook->script.loads, 2);
    const auto lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Outlook 16.89 is installed"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Getting default Outlook account name"), 1);
    EXPECT_EQ(outlook->changes().size(), 2u);
    EXPECT_EQ(view.closes, 2);
}

TEST_F(ApplyViewControllerTest, FailedConfigureLogsTheFailureAndStillCloses) {
    outlook->script.account = "";
    updateAndAppear(answer(SignatureAction::change, SignatureAction::clear));
    clearLog();
    controller->applyTapped();
    EXPECT_EQ(logLines(),
              (Lines{"Configure default signature clicked", "Outlook 16.89 is installed",
                     "Getting default Outlook account name", "Error: cannot get default Outlook account name",
                     "Applying default signature", "Error: failed to apply signatures"}));
    EXPECT_TRUE(outlook->changes().empty());
    EXPECT_EQ(view.closes, 1);

    // Without the script even a known account gets no success line.
    outlook->script.scriptAvailable = false;
    OutlookHandler::defaultAccount = "jane@example.com";
    clearLog();
    controller->applyTapped();
    const auto lines = logLines();
    EXPECT_EQ(lines.back(), "Error: failed to apply signatures");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Signatures applied successfully with automation"), 0);
    EXPECT_EQ(view.closes, 2);
}

TEST_F(ApplyViewControllerTest, CloseOnlyClosesTheWindow) {
    updateAndAppear(answer(SignatureAction::change, SignatureAction::change));
    clearLog();
    controller->closeTapped();
    EXPECT_EQ(view.closes, 1);
    EXPECT_TRUE(outlook->script.messages.empty());
    EXPECT_TRUE(logLines().empty());
    EXPECT_EQ(view.message, ApplyViewController::automaticMessage);
}

} // namespace
} // namespace varnoth::test
