#include "app/ApplyWindow.h"
#include "tests/app/QtWindowTest.h"
#include "tests/dialogs/ScriptedOutlook.h"

#include <QLabel>
#include <QPushButton>

namespace varnoth::test {
namespace {

class ApplyWindowTest : public QtWindowTest {
protected:
    void SetUp() override {
        QtWindowTest::SetUp();
        outlook.emplace();
        window = std::make_unique<ApplyWindow>();
    }
    void TearDown() override {
        window.reset();
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

    std::optional<ScriptedOutlook> outlook;
    std::unique_ptr<ApplyWindow> window;
};

TEST_F(ApplyWindowTest, ConfigureButtonQuotedByTheMessageSendsOnlyTheReplyMessageAndClosesTheWindow) {
    updateAndShow(SignatureAction::dontchange, SignatureAction::change);
    EXPECT_EQ(window->controller().view(), window.get());
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::automaticMessage));
    EXPECT_TRUE(messageView()->text().contains(QString::fromUtf8("\xE2\x80\x9C") + configureButton()->text() +
                                               QString::fromUtf8("\xE2\x80\x9D")));
    EXPECT_TRUE(configureButton()->isVisible());

    click(configureButton());
    EXPECT_EQ(outlook->changes(), (std::vector<RecordingScriptHost::Message>{
                                      {"applyDefaultReplySignatureFor:", {"jane@example.com"}}}));
    EXPECT_FALSE(window->dialog().isVisible());
    EXPECT_EQ(logLines().back(), "Signatures applied successfully with automation");
}

// One window reused: closed by its button or Escape, it shows the next update's message and button.
TEST_F(ApplyWindowTest, CloseLeavesOutlookAloneAndReopenedWindowFollowsTheNextUpdate) {
    updateAndShow(SignatureAction::change, SignatureAction::clear);
    EXPECT_TRUE(configureButton()->isVisible());
    click(closeButton());
    EXPECT_FALSE(window->dialog().isVisible());

    updateAndShow(SignatureAction::dontchange, SignatureAction::dontchange);
    EXPECT_EQ(messageView()->text(), QString::fromUtf8(ApplyViewController::notChangedMessage));
    EXPECT_FALSE(configureButton()->isVisible());
    EXPECT_TRUE(closeButton()->isVisible());
    QTest::keyClick(&window->dialog(), Qt::Key_Escape);
    EXPECT_FALSE(window->dialog().isVisible());

    updateAndShow(SignatureAction::undefined, SignatureAction::change);
    EXPECT_TRUE(configureButton()->isVisible());
    EXPECT_TRUE(outlook->script.messages.empty());
}

} // namespace
} // namespace varnoth::test
