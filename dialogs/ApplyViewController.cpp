#include "dialogs/ApplyViewController.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "dialogs/ApplyView.h"
#include "outlook/OutlookHandler.h"

namespace varnoth {

ApplyViewController::ApplyViewController(ApplyView* view) : view_(view) {}

bool ApplyViewController::allowAutomaticConfigure() const {
    return allowAutomaticConfigure_ ? *allowAutomaticConfigure_
                                    : Config::shared().AllowConfigureDefaultSignatures();
}

void ApplyViewController::updateMessage() {
    if (!signature) {
        // Without an answer there is nothing the agent could set, so the button is not offered.
        view_->setMessage(manualMessage);
        allowAutomaticConfigure_ = false;
        return;
    }
    if (signature->defaultSignatureAction == SignatureAction::dontchange &&
        signature->replySignatureAction == SignatureAction::dontchange) {
        // "Not changed" would deny the signatures this update has just installed.
        view_->setMessage(signature->additionalSignatures.empty() ? notChangedMessage : installedMessage);
        allowAutomaticConfigure_ = false;
        return;
    }
    // Read again: the button follows the configuration at the time of each update.
    allowAutomaticConfigure_ = Config::shared().AllowConfigureDefaultSignatures();
    view_->setMessage(*allowAutomaticConfigure_ ? automaticMessage : manualMessage);
}

void ApplyViewController::viewWillAppear() {
    view_->setConfigureButtonHidden(!allowAutomaticConfigure());
}

void ApplyViewController::applyTapped() {
    configureDefaultSignatures();
}

void ApplyViewController::closeTapped() {
    view_->closeWindow();
}

void ApplyViewController::configureDefaultSignatures() {
    Logger::log("Configure default signature clicked");
    if (!signature) {
        Logger::log("Error: no signatures to apply");
    } else {
        // A handler of its own for this click: it reloads the script and learns the account if still unknown.
        OutlookHandler handler;
        if (handler.applyDefaultSignatures(signature->defaultSignatureAction,
                                           signature->replySignatureAction)) {
            Logger::log("Signatures applied successfully with automation");
        }
    }
    // Failures are in the log only; the window closes as after a success.
    view_->closeWindow();
}

} // namespace varnoth
