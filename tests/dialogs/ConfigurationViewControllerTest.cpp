#include "dialogs/ConfigurationViewController.h"
#include "config/Config.h"
#include "tests/dialogs/FakeConfigurationView.h"
#include "tests/support/AgentTest.h"

namespace varnoth::test {
namespace {

using CheckState = ConfigurationView::CheckState;
// The dialog's controls as one comparable value: box, box enabled, field enabled, field text, OK.
using Controls = std::tuple<CheckState, bool, bool, std::string, bool>;
const Controls untouched{CheckState::off, true, false, "", false};

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
    Controls controls() const {
        return {view.checkbox, view.checkboxEnabled, view.emailEnabled, view.email, view.okEnabled};
    }

    FakeConfigurationView view;
    ConfigurationViewController controller{&view};
};

// An address the administrator fixes in the text file wins over the user's and cannot be changed; an
// empty one leaves the user free. OK always waits for the first change, and Cancel stores nothing.
TEST_F(ConfigurationViewControllerTest, OpeningShowsTheAddressInForceAndWhetherItMayBeChanged) {
    const std::string jane = "jane@example.com";
    for (const auto& [fixed, stored, expected] : std::vector<std::tuple<std::string, std::string, Controls>>{
             {"", "", untouched},
             {"", jane, {CheckState::on, true, true, jane, false}},
             {"boss@corp.example", jane, {CheckState::on, false, false, "boss@corp.example", false}}}) {
        SCOPED_TRACE("fixed \"" + fixed + "\", stored \"" + stored + '"');
        writeFile(systemConfigFolder() / "Varnoth Brelvane Agent.txt", "UserEmailAddress=" + fixed + "\n");
        Config::setShared(nullptr);
        defaults.setString("UserEmailAddress", stored);
        controller.viewWillAppear();
        EXPECT_EQ(controls(), expected);
        EXPECT_EQ(controller.useEmail(), std::get<0>(expected) == CheckState::on);
        type("x"); // the first edit enables OK: the address in force has its "@"
        EXPECT_TRUE(view.okEnabled);
        controller.cancel();
        EXPECT_EQ(defaults.string("UserEmailAddress"), stored);
    }
    controller.viewWillAppear();
    clickCheckbox(); // off: nothing to check
    EXPECT_TRUE(view.okEnabled);
    clickCheckbox(); // on again: the kept text has its "@"
    EXPECT_TRUE(view.okEnabled);
}

TEST_F(ConfigurationViewControllerTest, CheckedBoxNeedsAnAtSignAnywhereWhileUncheckedOrMixedNeedsNothing) {
    controller.viewWillAppear(); // nothing stored, no file
    EXPECT_EQ(controls(), untouched);
    clickCheckbox();
    EXPECT_TRUE(controller.useEmail());
    EXPECT_EQ(controls(), Controls(CheckState::on, true, true, "", false));
    // An "@" anywhere is enough; U+FF20, the fullwidth at sign, is none.
    for (const auto& [text, ok] : std::vector<std::pair<std::string, bool>>{
             {"@", true}, {"a@", true}, {"", false}, {"jane.example.com", false}, {"\xEF\xBC\xA0", false}}) {
        view.email = text;
        controller.controlTextDidChange();
        EXPECT_EQ(view.okEnabled, ok) << '"' << text << '"';
    }
    clickCheckbox();
    EXPECT_FALSE(view.emailEnabled);
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

TEST_F(ConfigurationViewControllerTest, OkStoresTheTextExactlyOrEmptyWhenUncheckedAndCancelNothing) {
    controller.viewWillAppear();
    clickCheckbox();
    type("jane@example.com");
    controller.cancel();
    EXPECT_FALSE(defaults.contains("UserEmailAddress"));
    controller.viewWillAppear(); // the edits are forgotten
    EXPECT_EQ(controls(), untouched);

    clickCheckbox();
    type(" Jane@Example.com ");
    controller.submit();
    EXPECT_EQ(defaults.string("UserEmailAddress"), " Jane@Example.com ");
    EXPECT_EQ(Config::shared().UserEmailAddress(), " Jane@Example.com "); // what the next update uses
    controller.viewWillAppear();
    EXPECT_EQ(controls(), Controls(CheckState::on, true, true, " Jane@Example.com ", false));

    // Unchecked, the empty text is stored so the Outlook account is used again.
    clickCheckbox();
    controller.submit();
    EXPECT_EQ(defaults.string("UserEmailAddress"), "");
    EXPECT_EQ(Config::shared().UserEmailAddress(), "");
    EXPECT_TRUE(Config::shared().UserEmailAddressEditable());
    EXPECT_EQ(view.closes, 3);
}

} // namespace
} // namespace varnoth::test
