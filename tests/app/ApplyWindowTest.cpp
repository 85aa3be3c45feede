#include "app/ApplyWindow.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "tests/app/QtWindowTest.h"
#include "tests/support/RecordingScriptHost.h"

#include <QLabel>
#include <QPushButton>

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

class ApplyWindowTest : public QtWindowTest {
protected:
    void SetUp() override {
        QtWindowTest::SetUp();
        Platform::Ports ports = Platform::ports();
        script.version = "16.89";
        script.account = "jane@example.com";
        ports.scriptHost = &script;
        Platform::install(ports);
        OutlookHandler::defaultAccount.reset();
        window = std::make_unique<ApplyWindow>();
    }
    void TearDown() override {
        window.reset();
        OutlookHandler::defaultAccount.reset();
        QtWindowTest::TearDown();
    }

    // What an update run does: hand over the answer, let the dialog choose its message, show the window.
    void updateAndShow(SignatureAction newAction, SignatureAction replyAction) {
        SignatureDescriptor descriptor;
        descriptor.defaultSignatureAction = newAction;
        descriptor.replySignatureAction = replyAction;
        window->controller().signature = descriptor;
        window->controller().updateMessage();
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window->dialog()));
    }

    QLabel* messageView() { return window->dialog().findChild<QLabel*>("messageView"); }
    QPushButton* configureButton() { return window->dialog().findChild<QPushButton*>("autoConfigureButton"); }
    QPushButton* closeButton() { return window->dialog().findChild<QPushButton*>("closeButton"); }

    RecordingScriptHost script;
    std::unique_ptr<ApplyWindow> window;
};

TEST_F(ApplyWindowTest, FormHasTheControlsAndTheButtonTitleTheMessageQuotes) {
    ASSERT_NE(messageView(), nullptr);
    ASSERT_NE(configureButton(), nullptr);
    ASSERT_NE(closeButton(), nullptr);
    EXPECT_EQ(window->controller().view(), window.get());
    const QString quoted =
        QString::fromUtf8("\xE2\x80\x9C") + configureButton()->text() + QString::fromUtf8("\xE2\x80\x9D");
    EXPECT_TRUE(QString::fromUtf8(ApplyViewController::automaticMessage).contains(quoted));
}

TEST_F(ApplyWindowTest, ConfigureButtonSendsOnlyTheReplyMessageAndClosesTheWindow) {
    updateAndShow(SignatureAction::dontchange, SignatureAction::change);
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::automaticMessage));
    EXPECT_TRUE(configureButton()->isVisible());

    click(configureButton());
    EXPECT_EQ(changes(script), (std::vector<RecordingScriptHost::Message>{
                                   {"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_FALSE(window->dialog().isVisible());
    EXPECT_EQ(logLines().back(), "Signatures applied successfully with automation");
}

TEST_F(ApplyWindowTest, NotChangedAnswerShowsNoConfigureButton) {
    updateAndShow(SignatureAction::dontchange, SignatureAction::dontchange);
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::notChangedMessage));
    EXPECT_FALSE(configureButton()->isVisible());
    EXPECT_TRUE(closeButton()->isVisible());
}

TEST_F(ApplyWindowTest, CloseLeavesOutlookAloneAndReopenedWindowFollowsTheNextUpdate) {
    updateAndShow(SignatureAction::change, SignatureAction::clear);
    EXPECT_TRUE(configureButton()->isVisible());
    click(closeButton());
    EXPECT_FALSE(window->dialog().isVisible());
    EXPECT_TRUE(script.messages.empty());

    updateAndShow(SignatureAction::dontchange, SignatureAction::dontchange);
    EXPECT_FALSE(configureButton()->isVisible());
    QTest::keyClick(&window->dialog(), Qt::Key_Escape);
    EXPECT_FALSE(window->dialog().isVisible());

    updateAndShow(SignatureAction::undefined, SignatureAction::change);
    EXPECT_TRUE(configureButton()->isVisible());
    EXPECT_TRUE(script.messages.empty());
}

} // namespace
} // namespace varnoth::test
