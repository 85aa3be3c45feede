#include "dialogs/ConfigurationViewController.h"
#include "core/Config.h"
#include "tests/dialogs/FakeConfigurationView.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

using CheckState = ConfigurationView::CheckState;

class ConfigurationViewControllerTest : public AgentTest {
protected:
    // The administrator's text file fixes the address.
    void fixAddressInTextFile(const std::string& address) {
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=" + address + "\n");
        Config::setShared(nullptr);
    }

    // What the user does: click the box, type into the field (one edit per character).
    void clickCheckbox() {
        view.checkbox = view.checkbox == CheckState::on ? CheckState::off : CheckState::on;
        controller.useEmailChanged();
    }
    void type(const std::string& text) {
        for (char c : text) {
            view.email.push_back(c);
            controller.controlTextDidChange();
        }
    }
    void replaceText(const std::string& text) {
        view.email = text;
        controller.controlTextDidChange();
    }

    FakeConfigurationView view;
    ConfigurationViewController controller{&view};
};

// Opening the dialog.

TEST_F(ConfigurationViewControllerTest, OpensUncheckedWithoutAnyAddressAndNeedsAnAtSignOnceChecked) {
    controller.viewWillAppear();
    EXPECT_FALSE(controller.useEmail());
    EXPECT_EQ(view.checkbox, CheckState::off);
    EXPECT_TRUE(view.checkboxEnabled);
    EXPECT_EQ(view.email, "");
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_FALSE(view.okEnabled);

    clickCheckbox();
    EXPECT_TRUE(controller.useEmail());
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_FALSE(view.okEnabled);
    type("jane.doe");
    EXPECT_FALSE(view.okEnabled);
    type("@");
    EXPECT_TRUE(view.okEnabled);
    type("example.com");
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, OpensWithStoredAddressCheckedButOkWaitsForFirstChange) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    controller.viewWillAppear();
    EXPECT_TRUE(controller.useEmail());
    EXPECT_EQ(view.checkbox, CheckState::on);
    EXPECT_TRUE(view.checkboxEnabled);
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_EQ(view.email, "jane@example.com");
    EXPECT_FALSE(view.okEnabled);

    type("x");
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, StoredAddressOkAlsoFollowsFirstClickOnBox) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    controller.viewWillAppear();
    clickCheckbox(); // off: nothing to check
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);
    clickCheckbox(); // on again: the kept text has its "@"
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, AddressFixedByAdministratorIsShownButCannotBeChanged) {
    fixAddressInTextFile("boss@corp.example");
    defaults.setString("UserEmailAddress", "jane@example.com"); // the file wins
    controller.viewWillAppear();
    EXPECT_TRUE(controller.useEmail());
    EXPECT_EQ(view.checkbox, CheckState::on);
    EXPECT_FALSE(view.checkboxEnabled);
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_EQ(view.email, "boss@corp.example");
    EXPECT_FALSE(view.okEnabled);

    controller.cancel();
    EXPECT_EQ(view.closes, 1);
    EXPECT_EQ(defaults.string("UserEmailAddress"), "jane@example.com");
}

TEST_F(ConfigurationViewControllerTest, EmptyAddressInTextFileLeavesTheUserFree) {
    fixAddressInTextFile("");
    controller.viewWillAppear();
    EXPECT_EQ(view.checkbox, CheckState::off);
    EXPECT_TRUE(view.checkboxEnabled);
}

TEST_F(ConfigurationViewControllerTest, EveryOpeningRereadsSoCancelledEditsAreForgotten) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    controller.viewWillAppear();
    clickCheckbox();
    replaceText("typed but cancelled");
    controller.cancel();

    controller.viewWillAppear();
    EXPECT_EQ(view.checkbox, CheckState::on);
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_EQ(view.email, "jane@example.com");
    EXPECT_FALSE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, StoredAddressShowsAtNextOpening) {
    controller.viewWillAppear();
    clickCheckbox();
    type("new@example.com");
    controller.submit();

    controller.viewWillAppear();
    EXPECT_EQ(view.checkbox, CheckState::on);
    EXPECT_EQ(view.email, "new@example.com");
    EXPECT_FALSE(view.okEnabled);
}

// Validation of the address.

TEST_F(ConfigurationViewControllerTest, AnyAtSignAnywhereIsEnough) {
    controller.viewWillAppear();
    clickCheckbox();
    for (const std::string text : {"@", "@@", "a@", "@b", " @ ", "\xC3\xA9@\xC3\xA9"}) {
        replaceText(text);
        EXPECT_TRUE(view.okEnabled) << '"' << text << '"';
    }
    for (const std::string text : {"", " ", "jane.example.com", "\xEF\xBC\xA0" /* fullwidth at */}) {
        replaceText(text);
        EXPECT_FALSE(view.okEnabled) << '"' << text << '"';
    }
}

TEST_F(ConfigurationViewControllerTest, UncheckedBoxEnablesOkWhateverTheText) {
    controller.viewWillAppear();
    clickCheckbox();
    replaceText("no at sign");
    EXPECT_FALSE(view.okEnabled);
    clickCheckbox();
    EXPECT_TRUE(view.okEnabled);
    replaceText("still none");
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, MixedCheckboxStateCountsAsOff) {
    controller.viewWillAppear();
    clickCheckbox();
    view.checkbox = CheckState::mixed;
    controller.useEmailChanged();
    EXPECT_FALSE(controller.useEmail());
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, SetUseEmailMatchesFieldAndRevalidates) {
    controller.viewWillAppear();
    view.email = "nobody";
    controller.setUseEmail(true);
    EXPECT_TRUE(controller.useEmail());
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_FALSE(view.okEnabled);
    controller.setUseEmail(false);
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);
}

// OK and Cancel.

TEST_F(ConfigurationViewControllerTest, OkStoresTheTextExactlyAndCloses) {
    controller.viewWillAppear();
    clickCheckbox();
    type(" Jane@Example.com ");
    ASSERT_TRUE(view.okEnabled);
    controller.submit();
    EXPECT_EQ(defaults.string("UserEmailAddress"), " Jane@Example.com ");
    EXPECT_EQ(view.closes, 1);
    EXPECT_EQ(Config::shared().UserEmailAddress(), " Jane@Example.com "); // what the next update uses
}

TEST_F(ConfigurationViewControllerTest, UncheckedOkStoresEmptyTextSoOutlookAccountIsUsedAgain) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    controller.viewWillAppear();
    clickCheckbox();
    ASSERT_TRUE(view.okEnabled);
    controller.submit();
    ASSERT_TRUE(defaults.contains("UserEmailAddress"));
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_EQ(view.closes, 1);
    EXPECT_EQ(Config::shared().UserEmailAddress(), "");
    EXPECT_TRUE(Config::shared().UserEmailAddressEditable());
}

TEST_F(ConfigurationViewControllerTest, CancelStoresNothing) {
    controller.viewWillAppear();
    clickCheckbox();
    type("jane@example.com");
    controller.cancel();
    EXPECT_FALSE(defaults.contains("UserEmailAddress"));
    EXPECT_EQ(view.closes, 1);
}

} // namespace
} // namespace varnoth::test
