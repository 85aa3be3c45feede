#include "dialogs/ConfigurationViewController.h"

#include "config/Config.h"
#include "dialogs/ConfigurationView.h"
#include "platform/Platform.h"

namespace varnoth {

void ConfigurationViewController::setUseEmail(bool useEmail) {
    useEmail_ = useEmail;
    view_->setEmailInputEnabled(useEmail_);
    validateInput();
}

void ConfigurationViewController::viewWillAppear() {
    const Config& config = Config::shared();
    const bool editable = editable_ = config.UserEmailAddressEditable();
    const std::string address = config.UserEmailAddress();
    // An address fixed by the administrator is always in use; otherwise a stored one is.
    useEmail_ = editable ? !address.empty() : true;
    if (useEmail_) {
        view_->setEmailInputEnabled(true);
    }
    validateInput();
    view_->setCheckboxState(useEmail_ ? ConfigurationView::CheckState::on
                                      : ConfigurationView::CheckState::off);
    view_->setCheckboxEnabled(editable);
    view_->setEmailInputEnabled(useEmail_ && editable);
    view_->setEmailText(address);
    view_->setExplanation(editable ? explanation : fixedExplanation);
    updateHint();
    // Nothing has changed yet, so there is nothing to store: OK waits for the first edit or click.
    view_->setOkButtonEnabled(false);
}

// The rule behind a disabled OK, said where the user types; a fixed address is no one's to correct.
void ConfigurationViewController::updateHint() {
    const bool waiting = editable_ && useEmail_ && view_->emailText().find('@') == std::string::npos;
    view_->setHint(waiting ? addressHint : "");
}

void ConfigurationViewController::validateInput() {
    // Deliberately loose: any "@" will do, the signature server decides what is a mailbox.
    const bool valid = !useEmail_ || view_->emailText().find('@') != std::string::npos;
    view_->setOkButtonEnabled(valid);
    updateHint();
}

void ConfigurationViewController::useEmailChanged() {
    useEmail_ = view_->checkboxState() == ConfigurationView::CheckState::on;
    view_->setEmailInputEnabled(useEmail_);
    validateInput();
}

void ConfigurationViewController::controlTextDidChange() {
    validateInput();
}

void ConfigurationViewController::submit() {
    // The empty text, not a removed key, tells the next update to use Outlook's default account.
    const std::string address = useEmail_ ? view_->emailText() : std::string();
    Platform::userDefaults().setString("UserEmailAddress", address);
    view_->closeWindow();
}

void ConfigurationViewController::cancel() {
    view_->closeWindow();
}

} // namespace varnoth
