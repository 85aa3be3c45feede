#include "dialogs/ConfigurationViewController.h"
#include "config/Config.h"
#include "tests/dialogs/FakeConfigurationView.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

using CheckState = ConfigurationView::CheckState;

class ConfigurationViewControllerTest : public AgentTest {
protected:
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
    // The dialog's controls as one comparable value: box, box enabled, field enabled, field text, OK.
    static std::tuple<CheckState, bool, bool, std::string, bool> controls(const FakeConfigurationView& view) {
        return {view.checkbox, view.checkboxEnabled, view.emailEnabled, view.email, view.okEnabled};
    }

    FakeConfigurationView view;
    ConfigurationViewController controller{&view};
};

// The opening state: an address the administrator fixes in the text file wins over the user's and
// cannot be changed; an empty one leaves the user free. OK always waits for the first change.
TEST_F(ConfigurationViewControllerTest, OpeningShowsTheAddressInForceAndWhetherItMayBeChanged) {
    struct Case {
        std::string fixed, stored; // "": none
        std::tuple<CheckState, bool, bool, std::string, bool> expected;
    };
    for (const auto& c : std::vector<Case>{
             {"", "", {CheckState::off, true, false, "", false}},
             {"", "jane@example.com", {CheckState::on, true, true, "jane@example.com", false}},
             {"boss@corp.example",
              "jane@example.com",
              {CheckState::on, false, false, "boss@corp.example", false}},
         }) {
        SCOPED_TRACE("fixed \"" + c.fixed + "\", stored \"" + c.stored + '"');
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=" + c.fixed + "\n");
        Config::setShared(nullptr);
        defaults = MemoryUserDefaults();
        if (!c.stored.empty()) {
            defaults.setString("UserEmailAddress", c.stored);
        }
        FakeConfigurationView fresh;
        ConfigurationViewController opened(&fresh);
        opened.viewWillAppear();
        EXPECT_EQ(controls(fresh), c.expected);
        EXPECT_EQ(opened.useEmail(), std::get<0>(c.expected) == CheckState::on);
        opened.cancel();
        EXPECT_EQ(defaults.string("UserEmailAddress").value_or(""), c.stored);
    }
}

TEST_F(ConfigurationViewControllerTest, CheckedBoxNeedsAnAtSignAnywhereWhileUncheckedOrMixedNeedsNothing) {
    controller.viewWillAppear(); // nothing stored, no file
    EXPECT_EQ(controls(view), std::tuple(CheckState::off, true, false, std::string(), false));
    clickCheckbox();
    EXPECT_TRUE(controller.useEmail());
    EXPECT_EQ(controls(view), std::tuple(CheckState::on, true, true, std::string(), false));
    type("jane.doe");
    EXPECT_FALSE(view.okEnabled);
    type("@example.com");
    EXPECT_TRUE(view.okEnabled);
    // An "@" anywhere is enough; U+FF20, the fullwidth at sign, is none.
    for (bool ok : {true, false}) {
        for (const std::string& text :
             ok ? std::vector<std::string>{"@", "@@", "a@", "@b", " @ ", "\xC3\xA9@\xC3\xA9"}
                : std::vector<std::string>{"", " ", "jane.example.com", "\xEF\xBC\xA0"}) {
            replaceText(text);
            EXPECT_EQ(view.okEnabled, ok) << '"' << text << '"';
        }
    }

    clickCheckbox();
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);
    replaceText("still none");
    EXPECT_TRUE(view.okEnabled);

    view.checkbox = CheckState::mixed;
    controller.useEmailChanged();
    EXPECT_FALSE(controller.useEmail());
    EXPECT_FALSE(view.emailEnabled);
    EXPECT_TRUE(view.okEnabled);

    controller.setUseEmail(true); // the field follows and the text is checked again
    EXPECT_TRUE(view.emailEnabled);
    EXPECT_FALSE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, StoredAddressEnablesOkOnFirstEditOrClick) {
    defaults.setString("UserEmailAddress", "jane@example.com");
    controller.viewWillAppear();
    type("x");
    EXPECT_TRUE(view.okEnabled);
    controller.viewWillAppear();
    clickCheckbox(); // off: nothing to check
    EXPECT_TRUE(view.okEnabled);
    clickCheckbox(); // on again: the kept text has its "@"
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, OkStoresTheTextExactlyOrEmptyWhenUncheckedAndTheNextOpeningShowsIt) {
    controller.viewWillAppear();
    clickCheckbox();
    type(" Jane@Example.com ");
    controller.submit();
    EXPECT_EQ(defaults.string("UserEmailAddress"), " Jane@Example.com ");
    EXPECT_EQ(view.closes, 1);
    EXPECT_EQ(Config::shared().UserEmailAddress(), " Jane@Example.com "); // what the next update uses
    controller.viewWillAppear();
    EXPECT_EQ(controls(view),
              std::tuple(CheckState::on, true, true, std::string(" Jane@Example.com "), false));

    // Unchecked, the empty text is stored so the Outlook account is used again.
    clickCheckbox();
    controller.submit();
    ASSERT_TRUE(defaults.contains("UserEmailAddress"));
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_EQ(Config::shared().UserEmailAddress(), "");
    EXPECT_TRUE(Config::shared().UserEmailAddressEditable());
    EXPECT_EQ(view.closes, 2);
}

TEST_F(ConfigurationViewControllerTest, CancelStoresNothingAndTheNextOpeningForgetsTheEdits) {
    controller.viewWillAppear();
    clickCheckbox();
    type("jane@example.com");
    controller.cancel();
    EXPECT_FALSE(defaults.contains("UserEmailAddress"));
    EXPECT_EQ(view.closes, 1);
    controller.viewWillAppear();
    EXPECT_EQ(controls(view), std::tuple(CheckState::off, true, false, std::string(), false));
}

} // namespace
} // namespace varnoth::test
