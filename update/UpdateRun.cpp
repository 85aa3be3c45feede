#include "update/UpdateRun.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "dialogs/ApplyViewController.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "server/NetworkService.h"

#include <algorithm>

namespace varnoth {

UpdateRun::UpdateRun(bool userInitiated, ApplyViewController* applyController, Delegate& delegate)
    : userInitiated_(userInitiated), applyController_(applyController), delegate_(delegate) {}

UpdateRun::~UpdateRun() = default;

void UpdateRun::start() {
    if (userInitiated_) {
        Logger::log("Update Signatures menu selected");
    }
    Logger::captureEnabled = true;
    Logger::capturedLog.clear();
    Logger::log("Update signatures started");

    Config& config = Config::shared();
    if (!config.knowsSignatureServer()) {
        const std::string message =
            "Missing SignatureServerAddress configuration. Unable to update signatures.";
        Logger::log(message);
        showUpdateFailedAlert(message, userInitiated_);
        failure_ = message;
        finish(false);
        return;
    }

    service_ = std::make_shared<NetworkService>();
    delegate_.setLoading(true);
    handler_ = std::make_shared<OutlookHandler>();
    if (const auto blocker = handler_->blocker(); blocker != OutlookState::Blocker::none) {
        stopBlocked(blocker);
        return;
    }

    if (const auto fixed = config.fixedEmailAddress()) {
        address_ = *fixed;
        Logger::log("Using fixed email address: " + address_);
    } else {
        address_ = OutlookHandler::defaultAccount.value_or("");
        Logger::log("Update signatures: using default account: " + address_);
        Logger::log("Update signatures: Fetching signature");
    }

    if (address_.empty()) {
        Logger::log("Error: Update signatures: no email account available");
        submitDeploymentLog(false);
        delegate_.setLoading(false);
        showUpdateFailedAlert("No email account available", userInitiated_);
        failure_ = "No email account available";
        finish(false);
        return;
    }

    // The completion refers to the run, which owns the service, so the completion the service stores
    // does not keep its own service alive.
    service_->getSignatures(
        address_, [this](std::optional<SignatureDescriptor> outcome) { handleSignatures(outcome); });
}

void UpdateRun::handleSignatures(const std::optional<SignatureDescriptor>& outcome) {
    if (!outcome) {
        Logger::log("Error Update signatures: Fetching signature failed");
        submitDeploymentLog(false);
        showUpdateFailedAlert("Fetching signature failed", userInitiated_);
        delegate_.setLoading(false);
        failure_ = "Fetching signature failed";
        finish(false);
        return;
    }
    Logger::log("Update signatures: Fetching signature succeeded");
    if (outcome->noSetting) {
        delegate_.setLoading(false);
        failure_ = "No Outlook signatures are assigned to your email address " + address_ + ".";
        showUpdateFailedAlert(failure_, userInitiated_);
        finish(false);
        return;
    }
    // Only setting the default signatures drives Outlook's window, which the permission guards.
    const auto applies = [](SignatureAction action) {
        return action == SignatureAction::change || action == SignatureAction::clear;
    };
    if ((applies(outcome->defaultSignatureAction) || applies(outcome->replySignatureAction)) &&
        !Platform::accessibility().isTrusted(false)) {
        stopBlocked(OutlookState::Blocker::accessibilityMissing);
        return;
    }
    if (applyController_ != nullptr) {
        applyController_->signature = *outcome;
        applyController_->updateMessage();
    }

    bool defaultChanged = false;
    bool allSucceeded = true;
    applySignatures(*outcome, *handler_, defaultChanged, allSucceeded);

    if (allSucceeded) {
        if (userInitiated_ || defaultChanged) {
            Logger::log("Update signatures: Create signatures succeeded");
            delegate_.openApplyDialog();
        }
    } else {
        failure_ = "Signature creation failed";
        showUpdateFailedAlert(failure_, userInitiated_);
    }
    submitDeploymentLog(allSucceeded);
    delegate_.setLoading(false);
    finish(allSucceeded);
}

void UpdateRun::stopBlocked(OutlookState::Blocker blocker) {
    const std::string cause = OutlookState::cause(blocker);
    Logger::log("Error: " + cause);
    submitDeploymentLog(false);
    delegate_.setLoading(false);
    showUpdateFailedAlert(cause, userInitiated_);
    failure_ = cause;
    finish(false);
}

void UpdateRun::finish(bool success) {
    // Every end of a run ends its capture, so no line of it waits for the next run's deployment log.
    Logger::captureEnabled = false;
    Logger::capturedLog.clear();
    // The run ends once its deployment log is sent, so the send's lines come before the next run's.
    if (service_) {
        service_->whenIdle([this, success] { delegate_.updateFinished(success); });
    } else {
        delegate_.updateFinished(success);
    }
}

namespace {

// What differs between the default signature for new messages and the one for replies and forwards.
struct DefaultSignatureSteps {
    const char* changeLine;
    const char* clearLine;
    const char* keepLine;
    bool (OutlookHandler::*needsUpdate)(const std::string&);
    bool (OutlookHandler::*create)(const std::string&);
    void (OutlookHandler::*remove)();
};

const DefaultSignatureSteps newDefaultSteps{"Default new email signature will be updated if needed",
                                            "Default new email signature: <None>",
                                            "Default new email signature: <Do Not Change>",
                                            &OutlookHandler::defaultNewSignatureNeedsUpdate,
                                            &OutlookHandler::createDefaultNewSignature,
                                            &OutlookHandler::deleteDefaultNewSignature};

const DefaultSignatureSteps replyDefaultSteps{
    "Default reply forward email signature will be updated if needed",
    "Default reply forward email signature: <None>",
    "Default reply forward email signature: <Do Not Change>",
    &OutlookHandler::defaultReplySignatureNeedsUpdate,
    &OutlookHandler::createDefaultReplySignature,
    &OutlookHandler::deleteDefaultReplySignature};

void applyDefaultSignature(SignatureAction action, const std::optional<std::string>& content,
                           const DefaultSignatureSteps& steps, OutlookHandler& outlook, bool& defaultChanged,
                           bool& allSucceeded) {
    switch (action) {
    case SignatureAction::change:
        Logger::log(steps.changeLine);
        if (content && !content->empty() && (outlook.*steps.needsUpdate)(*content)) {
            allSucceeded = (outlook.*steps.create)(*content) && allSucceeded;
            defaultChanged = true;
        }
        break;
    case SignatureAction::clear:
        Logger::log(steps.clearLine);
        (outlook.*steps.remove)();
        break;
    case SignatureAction::dontchange:
        Logger::log(steps.keepLine);
        break;
    case SignatureAction::undefined:
        break;
    }
}

} // namespace

void UpdateRun::applySignatures(const SignatureDescriptor& descriptor, OutlookHandler& outlook,
                                bool& defaultChanged, bool& allSucceeded) {
    // "Remove other signatures" removes what this deployment does not hold. Its own signatures stay, so
    // Outlook keeps their default assignments; a default left as it is keeps whatever the user has.
    if (descriptor.removeOtherSignatures) {
        outlook.deleteSignaturesExcept(OutlookHandler::deploymentSignatures(descriptor));
    }

    applyDefaultSignature(descriptor.defaultSignatureAction, descriptor.defaultSignature, newDefaultSteps,
                          outlook, defaultChanged, allSucceeded);
    applyDefaultSignature(descriptor.replySignatureAction, descriptor.replySignature, replyDefaultSteps,
                          outlook, defaultChanged, allSucceeded);

    // Signatures the last run installed and the server no longer lists are removed; a list holding
    // anything but names is not trusted as a whole.
    UserDefaults& defaults = Platform::userDefaults();
    if (auto previous = defaults.stringArray("additionalSignatures")) {
        for (const auto& name : *previous) {
            if (descriptor.additionalSignatures.count(name) == 0) {
                outlook.deleteSignature(name);
            }
        }
    }
    // Those Outlook already holds as the server has them are not written again. In name order, so every
    // run (and every platform's map) logs them alike.
    std::vector<const std::pair<const std::string, std::string>*> signatures;
    for (const auto& signature : descriptor.additionalSignatures) {
        signatures.push_back(&signature);
    }
    std::ranges::sort(signatures, {},
                      [](const auto* signature) -> const std::string& { return signature->first; });
    std::vector<std::string> installed;
    for (const auto* signature : signatures) {
        const auto& [name, content] = *signature;
        if (outlook.updateSignature(name, content)) {
            installed.push_back(name);
        } else {
            allSucceeded = false;
        }
    }
    defaults.setStringArray("additionalSignatures", installed);
}

void UpdateRun::submitDeploymentLog(bool success) {
    if (!service_) {
        return;
    }
    service_->submitDeploymentLog(success, Logger::capturedLog);
}

void UpdateRun::showUpdateFailedAlert(const std::string& message, bool userInitiated) {
    if (Config::shared().SuppressErrorMessages() && !userInitiated) {
        return;
    }
    Platform::alerts().showModal("Update signatures failed", message, "OK");
}

} // namespace varnoth
