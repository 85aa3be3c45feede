#include "app/ConfigurationWindow.h"
#include "config/Config.h"
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

// Typing enables OK only with an "@"; Return submits only while OK is enabled.
TEST_F(ConfigurationWindowTest, UserChecksBoxTypesAddressAndPressesReturn) {
    open();
    EXPECT_FALSE(checkbox()->isChecked());
    EXPECT_TRUE(checkbox()->isEnabled());
    EXPECT_FALSE(emailInput()->isEnabled());
    EXPECT_EQ(emailInput()->text(), "");
    EXPECT_FALSE(okButton()->isEnabled());

    clickCheckBox(checkbox());
    EXPECT_TRUE(checkbox()->isChecked());
    EXPECT_TRUE(emailInput()->isEnabled());
    QTest::keyClicks(emailInput(), "@");
    EXPECT_TRUE(okButton()->isEnabled());
    QTest::keyClick(emailInput(), Qt::Key_Backspace);
    EXPECT_FALSE(okButton()->isEnabled());
    QTest::keyClicks(emailInput(), "jane.doe");
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_TRUE(window.dialog().isVisible());
    EXPECT_FALSE(defaults.contains("UserEmailAddress"));

    QTest::keyClicks(emailInput(), "@example.com");
    QTest::keyClick(emailInput(), Qt::Key_Return);
    EXPECT_FALSE(window.dialog().isVisible());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane.doe@example.com");
}

// A stored address: Cancel and Escape store nothing, reopening shows it again, and unchecking the box
// then OK stores empty text.
TEST_F(ConfigurationWindowTest, StoredAddressIsKeptByCancelAndEscapeAndEmptiedByUncheckedOk) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    open();
    EXPECT_TRUE(checkbox()->isChecked());
    EXPECT_TRUE(emailInput()->isEnabled());
    EXPECT_EQ(emailInput()->text(), "jane@example.com");
    EXPECT_FALSE(okButton()->isEnabled());
    emailInput()->selectAll();
    QTest::keyClicks(emailInput(), "other@example.com");
    click(cancelButton());
    EXPECT_FALSE(window.dialog().isVisible());

    open();
    EXPECT_EQ(emailInput()->text(), "jane@example.com");
    QTest::keyClicks(emailInput(), "x");
    QTest::keyClick(emailInput(), Qt::Key_Escape);
    EXPECT_FALSE(window.dialog().isVisible());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane@example.com");

    open();
    clickCheckBox(checkbox());
    EXPECT_FALSE(emailInput()->isEnabled());
    click(okButton());
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_FALSE(window.dialog().isVisible());
}

TEST_F(ConfigurationWindowTest, AddressFixedByAdministratorCanOnlyBeCancelled) {
    writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=boss@corp.example\n");
    Config::setShared(nullptr);
    open();
    EXPECT_FALSE(checkbox()->isEnabled());
    EXPECT_FALSE(emailInput()->isEnabled());
    EXPECT_EQ(emailInput()->text(), "boss@corp.example");

    clickCheckBox(checkbox());
    click(okButton());
    EXPECT_TRUE(checkbox()->isChecked());
    EXPECT_TRUE(window.dialog().isVisible());
    click(cancelButton());
    EXPECT_FALSE(window.dialog().isVisible());
    EXPECT_FALSE(defaults.contains("UserEmailAddress"));
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
