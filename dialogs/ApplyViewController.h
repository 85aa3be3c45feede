#pragma once

#include "server/SignatureDescriptor.h"

#include <optional>

namespace varnoth {

class ApplyView;

// The apply-signatures dialog's logic: after an update it tells the user how to make the installed
// default signatures Outlook's defaults and, where the administrator allows it, offers to do so through
// the Outlook script. One controller is reused from update to update.
class ApplyViewController {
public:
    static constexpr const char* notChangedMessage =
        "Your Outlook signatures are configured not to be changed.";
    // Further signatures were installed while both defaults stay as they are.
    static constexpr const char* installedMessage =
        "Your Outlook signatures have been updated. Your default signatures for new messages and for "
        "replies and forwards are configured not to be changed.";
    static constexpr const char* manualMessage =
        "Your Outlook signatures have been updated. Please start Outlook, select Preferences from the main "
        "menu, open Signatures, and choose the appropriate signatures to be default for New messages and "
        "Replies/Forwards.";
    // The manual message plus the offer of the configure button, whose title it quotes.
    static constexpr const char* automaticMessage =
        "Your Outlook signatures have been updated. Please start Outlook, select Preferences from the main "
        "menu, open Signatures, and choose the appropriate signatures to be default for New messages and "
        "Replies/Forwards.\n\nYou can also click \u201c"
        "Configure default signatures\u201d below to automatically configure the new default signatures in "
        "Outlook.\n\nCaution:\n- Close any open Outlook windows and dialogs before configuring the default "
        "signatures.\n- Security dialogs may appear when configuring the default signatures.\n- Do not use "
        "Outlook while the default signatures are being configured.\n- You must manually close the "
        "Signatures dialog in Outlook.";

    // Starts with no answer and with the configure button allowed as the configuration says.
    explicit ApplyViewController(ApplyView* view = nullptr);

    // The view is set once the window's controls exist and is used without a check from then on.
    void setView(ApplyView* view) { view_ = view; }
    ApplyView* view() const { return view_; }

    // The server's answer for the mailbox that was updated; set by the update run before the window shows.
    std::optional<SignatureDescriptor> signature;
    // Whether the configure button is offered: AllowConfigureDefaultSignatures until an answer decides.
    // Read at first use, not at construction: the window is made before start-up writes its banner, and
    // the configuration's search lines belong after it.
    bool allowAutomaticConfigure() const;

    // Chooses the message for the current answer and whether the configure button is offered.
    void updateMessage();
    // Shows the configure button exactly when it is offered; runs every time the window appears.
    void viewWillAppear();

    // Button actions.
    void applyTapped();
    void closeTapped();

    // Makes the installed default signatures Outlook's defaults through the script, then closes.
    void configureDefaultSignatures();

private:
    ApplyView* view_;
    std::optional<bool> allowAutomaticConfigure_;
};

} // namespace varnoth
