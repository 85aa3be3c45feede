#include "dialogs/ApplyViewController.h"
#include "core/Config.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "tests/dialogs/FakeApplyView.h"
#include "tests/support/AgentTest.h"
#include "tests/support/RecordingScriptHost.h"

#include <algorithm>
#include <array>

namespace varnoth::test {
namespace {

// The messages that change Outlook: all but the two reading ones that every handler sends.
std::vector<RecordingScriptHost::Message> changes(const RecordingScriptHost& script) {
    std::vector<RecordingScriptHost::Message> result;
    for (const auto& message : script.messages) {
        if (message.selector != "getVersion" && message.selector != "getDefaultAccount") {
            result.push_back(message);
        }
    }
    return result;
}

constexpr std::array allActions = {SignatureAction::undefined, SignatureAction::change,
                                   SignatureAction::clear, SignatureAction::dontchange};

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
        Platform::Ports ports = Platform::ports();
        script.version = "16.89";
        script.account = "jane@example.com";
        ports.scriptHost = &script;
        Platform::install(ports);
        OutlookHandler::defaultAccount.reset();
    }
    void TearDown() override {
        OutlookHandler::defaultAccount.reset();
        AgentTest::TearDown();
    }

    void allowConfigure(bool allowed) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt",
                  std::string("AllowConfigureDefaultSignatures=") + (allowed ? "1" : "0") + "\n");
        Config::setShared(nullptr);
    }

    // What the update run does before it shows the window, then the window appearing.
    void updateAndAppear(ApplyViewController& controller, std::optional<SignatureDescriptor> signature) {
        controller.signature = std::move(signature);
        controller.updateMessage();
        controller.viewWillAppear();
    }

    RecordingScriptHost script;
    FakeApplyView view;
};

// The texts.

TEST_F(ApplyViewControllerTest, AutomaticMessageExtendsManualOneAndQuotesButtonTypographically) {
    const std::string automatic = ApplyViewController::automaticMessage;
    const std::string manual = ApplyViewController::manualMessage;
    EXPECT_EQ(automatic.size(), 639u);
    EXPECT_EQ(std::count_if(automatic.begin(), automatic.end(), [](char c) { return (c & 0xC0) != 0x80; }),
              635);
    EXPECT_EQ(automatic.compare(0, manual.size(), manual), 0);
    EXPECT_NE(automatic.find("click \xE2\x80\x9C"
                             "Configure default signatures\xE2\x80\x9D below"),
              std::string::npos);
    EXPECT_NE(automatic.find("Replies/Forwards.\n\nYou can also"), std::string::npos);
    const std::string ending = "\n- You must manually close the Signatures dialog in Outlook.";
    EXPECT_EQ(automatic.substr(automatic.size() - ending.size()), ending);
    EXPECT_STREQ(ApplyViewController::notChangedMessage,
                 "Your Outlook signatures are configured not to be changed.");
}

// Choosing the message and the button.

TEST_F(ApplyViewControllerTest, ConstructionTakesButtonPermissionFromConfiguration) {
    EXPECT_TRUE(ApplyViewController(&view).allowAutomaticConfigure);
    allowConfigure(false);
    EXPECT_FALSE(ApplyViewController(&view).allowAutomaticConfigure);
    EXPECT_FALSE(ApplyViewController(&view).signature.has_value());
}

TEST_F(ApplyViewControllerTest, BothDontChangeMeansNotChangedWithoutButtonWhateverConfigurationSays) {
    for (bool allowed : {true, false}) {
        allowConfigure(allowed);
        ApplyViewController controller(&view);
        updateAndAppear(controller, answer(SignatureAction::dontchange, SignatureAction::dontchange));
        EXPECT_EQ(view.message, ApplyViewController::notChangedMessage);
        EXPECT_FALSE(controller.allowAutomaticConfigure);
        EXPECT_EQ(view.configureButtonHidden, true);
    }
}

TEST_F(ApplyViewControllerTest, EveryOtherAnswerFollowsConfiguration) {
    for (bool allowed : {true, false}) {
        allowConfigure(allowed);
        ApplyViewController controller(&view);
        for (auto newAction : allActions) {
            for (auto replyAction : allActions) {
                if (newAction == SignatureAction::dontchange && replyAction == SignatureAction::dontchange) {
                    continue;
                }
                SCOPED_TRACE(testing::Message() << "allowed " << allowed << ", actions " << int(newAction)
                                                << "/" << int(replyAction));
                updateAndAppear(controller, answer(newAction, replyAction));
                EXPECT_EQ(view.message, allowed ? ApplyViewController::automaticMessage
                                                : ApplyViewController::manualMessage);
                EXPECT_EQ(controller.allowAutomaticConfigure, allowed);
                EXPECT_EQ(view.configureButtonHidden, !allowed);
            }
        }
    }
}

TEST_F(ApplyViewControllerTest, UpdateMessageReadsConfigurationAgain) {
    ApplyViewController controller(&view);
    ASSERT_TRUE(controller.allowAutomaticConfigure);
    allowConfigure(false);
    updateAndAppear(controller, answer(SignatureAction::change, SignatureAction::change));
    EXPECT_EQ(view.message, ApplyViewController::manualMessage);
    EXPECT_EQ(view.configureButtonHidden, true);
}

TEST_F(ApplyViewControllerTest, ReusedDialogFollowsTheLastUpdate) {
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::dontchange, SignatureAction::change));
    EXPECT_EQ(view.configureButtonHidden, false);
    controller.closeTapped();

    updateAndAppear(controller, answer(SignatureAction::dontchange, SignatureAction::dontchange));
    EXPECT_EQ(view.message, ApplyViewController::notChangedMessage);
    EXPECT_EQ(view.configureButtonHidden, true);

    updateAndAppear(controller, answer(SignatureAction::clear, SignatureAction::undefined));
    EXPECT_EQ(view.message, ApplyViewController::automaticMessage);
    EXPECT_EQ(view.configureButtonHidden, false);
}

TEST_F(ApplyViewControllerTest, WithoutAnswerNothingIsOfferedAndConfigureOnlyLogsAndCloses) {
    ApplyViewController controller(&view);
    updateAndAppear(controller, std::nullopt);
    EXPECT_EQ(view.message, ApplyViewController::manualMessage);
    EXPECT_EQ(view.configureButtonHidden, true);

    clearLog();
    controller.applyTapped();
    EXPECT_EQ(logLines(), (std::vector<std::string>{"Configure default signature clicked",
                                                    "Error: no signatures to apply"}));
    EXPECT_TRUE(script.messages.empty());
    EXPECT_EQ(script.loads, 0);
    EXPECT_EQ(view.closes, 1);
}

// The configure and close buttons.

TEST_F(ApplyViewControllerTest, ConfigureWithOnlyReplyToChangeSendsOnlyTheReplyMessage) {
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::dontchange, SignatureAction::change));
    ASSERT_EQ(view.message, ApplyViewController::automaticMessage);
    ASSERT_EQ(view.configureButtonHidden, false);

    clearLog();
    controller.applyTapped();
    EXPECT_EQ(changes(script), (std::vector<RecordingScriptHost::Message>{
                                   {"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_EQ(logLines(), (std::vector<std::string>{
                              "Configure default signature clicked",
                              "Outlook 16.89 is installed",
                              "Getting default Outlook account name",
                              "Successfully got default Outlook account name: jane@example.com",
                              "Applying default signature",
                              "Automation will set reply signature",
                              "Applied default signatures successfully",
                              "Signatures applied successfully with automation",
                          }));
    EXPECT_EQ(view.closes, 1);
}

TEST_F(ApplyViewControllerTest, EveryClickUsesAFreshHandlerButTheAccountIsLearnedOnce) {
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::change, SignatureAction::change));
    controller.applyTapped();
    controller.applyTapped();
    EXPECT_EQ(script.loads, 2);
    const auto lines = logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Outlook 16.89 is installed"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Getting default Outlook account name"), 1);
    EXPECT_EQ(changes(script),
              (std::vector<RecordingScriptHost::Message>{{"applySignaturesFor:", {"jane@example.com"}},
                                                         {"applySignaturesFor:", {"jane@example.com"}}}));
    EXPECT_EQ(view.closes, 2);
}

TEST_F(ApplyViewControllerTest, UnknownDefaultAccountClosesAfterLoggingTheFailure) {
    script.account = "";
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::change, SignatureAction::clear));
    clearLog();
    controller.applyTapped();
    EXPECT_EQ(logLines(), (std::vector<std::string>{
                              "Configure default signature clicked",
                              "Outlook 16.89 is installed",
                              "Getting default Outlook account name",
                              "Error: cannot get default Outlook account name",
                              "Applying default signature",
                              "Error: failed to apply signatures",
                          }));
    EXPECT_TRUE(changes(script).empty());
    EXPECT_EQ(view.closes, 1);
}

TEST_F(ApplyViewControllerTest, MissingScriptClosesWithoutSuccessLine) {
    script.scriptAvailable = false;
    OutlookHandler::defaultAccount = "jane@example.com";
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::change, SignatureAction::change));
    controller.applyTapped();
    const auto lines = logLines();
    EXPECT_EQ(lines.back(), "Error: failed to apply signatures");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Signatures applied successfully with automation"), 0);
    EXPECT_EQ(view.closes, 1);
}

TEST_F(ApplyViewControllerTest, CloseOnlyClosesTheWindow) {
    ApplyViewController controller(&view);
    updateAndAppear(controller, answer(SignatureAction::change, SignatureAction::change));
    clearLog();
    controller.closeTapped();
    EXPECT_EQ(view.closes, 1);
    EXPECT_TRUE(script.messages.empty());
    EXPECT_TRUE(logLines().empty());
    EXPECT_EQ(view.message, ApplyViewController::automaticMessage);
    EXPECT_TRUE(controller.allowAutomaticConfigure);
}

} // namespace
} // namespace varnoth::test
