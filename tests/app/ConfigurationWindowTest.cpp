#include "app/ConfigurationWindow.h"
#include "tests/app/QtWindowTest.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QPushButton>

namespace varnoth::test {
namespace {

class ConfigurationWindowTest : public QtWindowTest {
protected:
    void open() {
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window.dialog()));
    }

    QCheckBox* checkbox() { return window.dialog().findChild<QCheckBox*>("emailCheckbox"); }
    QLineEdit* emailInput() { return window.dialog().findChild<QLineEdit*>("emailInput"); }
    QPushButton* okButton() { return window.dialog().findChild<QPushButton*>("okButton"); }
    QPushButton* cancelButton() { return window.dialog().findChild<QPushButton*>("cancelButton"); }

    ConfigurationWindow window;
};

// The controls reach the controller (whose rules ConfigurationViewControllerTest covers): the box, typing,
// Return only while OK is enabled, Cancel, Escape and OK.
TEST_F(ConfigurationWindowTest, ControlsKeysAndButtonsDriveTheDialog) {
    open();
    EXPECT_FALSE(emailInput()->isEnabled());
    clickCheckBox(checkbox());
    EXPECT_TRUE(emailInput()->isEnabled());
    QTest::keyClicks(emailInput(), "jane.doe");
    EXPECT_FALSE(okButton()->isEnabled());
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_TRUE(window.dialog().isVisible());
    QTest::keyClicks(emailInput(), "@example.com");
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_FALSE(window.dialog().isVisible());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");

    for (const bool escape : {false, true}) {
        open();
        EXPECT_EQ(emailInput()->text(), "jane.doe@example.com");
        QTest::keyClicks(emailInput(), "x");
        escape ? QTest::keyClick(emailInput(), Qt::Key_Escape) : click(cancelButton());
        EXPECT_FALSE(window.dialog().isVisible());
        EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");
    }
    open();
    clickCheckBox(checkbox());
    click(okButton());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_FALSE(window.dialog().isVisible());
}

TEST_F(ConfigurationWindowTest, CenterPutsTheWindowInTheMiddleOfTheScreen) {
    window.center();
    window.setRestorable(true);
    open();
    // The window frame is known only once shown, so the middle may be off by the frame's width.
    const QRect area = window.dialog().screen()->availableGeometry();
    const QPoint middle = window.dialog().frameGeometry().center();
    EXPECT_LE(std::abs(middle.x() - area.center().x()), 8);
    EXPECT_LE(std::abs(middle.y() - area.center().y()), 8);
    EXPECT_TRUE(window.restorable());
}

} // namespace
} // namespace varnoth::test
