#pragma once

namespace varnoth {

class ConfigurationView;

// The configuration dialog's logic: lets the user fix the email address for which signatures are
// fetched instead of Outlook's default account. Its only lasting effect is the user-defaults value
// "UserEmailAddress". One controller serves every opening of the dialog.
class ConfigurationViewController {
public:
    static constexpr const char* explanation = "Signatures are fetched for the email address of Outlook's "
                                               "default account unless you enter another address here.";
    // When the administrator fixes the address, in the configuration file or as a managed preference.
    static constexpr const char* fixedExplanation = "This address is set by your organisation.";
    // Under the field while OK waits for an "@".
    static constexpr const char* addressHint = "OK is available once the address contains \"@\".";

    explicit ConfigurationViewController(ConfigurationView* view = nullptr) : view_(view) {}

    // The view is set once the window's controls exist and is used without a check from then on.
    void setView(ConfigurationView* view) { view_ = view; }
    ConfigurationView* view() const { return view_; }

    bool useEmail() const { return useEmail_; }
    // Also enables the address field to match and re-validates, as a click on the check box does.
    void setUseEmail(bool useEmail);

    // Fills the dialog from the configuration each time the window appears.
    void viewWillAppear();

    // Control actions: the check box, every edit of the address field, OK and Cancel.
    void useEmailChanged();
    void controlTextDidChange();
    void submit();
    void cancel();

    // Enables OK when the input may be stored.
    void validateInput();

private:
    void updateHint();

    ConfigurationView* view_;
    bool useEmail_ = false;
    bool editable_ = true;
};

} // namespace varnoth
