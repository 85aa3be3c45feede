#include "agent/AppDelegate.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "dialogs/ApplyViewController.h"
#include "outlook/OutlookHandler.h"
#include "platform/LoginItem.h"
#include "platform/Platform.h"
#include "platform/Window.h"
#include "server/NetworkService.h"

#include <cmath>

namespace varnoth {

AppDelegate::AppDelegate() : AppDelegate(Windows{}) {}

AppDelegate::AppDelegate(Windows windows)
    : windows_(windows), agent_(Platform::bundle().identifier, {Platform::bundle().name}) {}

AppDelegate::~AppDelegate() {
    if (accessibilityObserver_) {
        Platform::accessibility().removeObserver(*accessibilityObserver_);
    }
}

void AppDelegate::applicationDidFinishLaunching() {
    setUpAgent();
}

void AppDelegate::applicationWillTerminate() {
    Logger::log("Exiting");
}

void AppDelegate::writeBanner() {
    const BundleInfo& bundle = Platform::bundle();
    Logger::log("--------------- " + bundle.name + " Version " + bundle.shortVersion + "." + bundle.version +
                " ---------------");
    HostInfo& host = Platform::hostInfo();
#ifdef __APPLE__
    // The Mac's version string names no system: "Version 14.5 (Build 23F79)".
    Logger::log("Operating system is macOS " + host.operatingSystemVersion());
#else
    // Elsewhere the host's text names the system itself: the distribution and the kernel.
    Logger::log("Operating system is " + host.operatingSystemVersion());
#endif
    Logger::log("The current user is " + host.loginName());
    if (auto computer = host.computerName()) {
        Logger::log("The current computer is " + *computer);
    }
}

void AppDelegate::setUpAgent() {
    writeBanner();
    setLoading(false);
    constructMenu();

    if (Platform::accessibility().isTrusted(false)) {
        Logger::log("Accessibility permission is set up correctly");
        startEngine();
        return;
    }
    Logger::log("Waiting for accessibility permission");
    requestAccessibility(true);
    accessibilityObserver_ =
        Platform::accessibility().addObserver([this] { accessibilityPermissionReceived(); });
}

bool AppDelegate::requestAccessibility(bool prompt) {
    const bool trusted = Platform::accessibility().isTrusted(prompt);
    Logger::log(std::string("Application is granted accessibility permission: ") +
                (trusted ? "true" : "false"));
    return trusted;
}

void AppDelegate::accessibilityPermissionReceived() {
    Logger::log("Accessibility permission received");
    Platform::mainQueue().postAfter(engineStartDelay, [this] { startEngine(); });
}

void AppDelegate::startEngine() {
    // Several notifications may each have scheduled a start; the engine runs once.
    if (engineStarted_) {
        return;
    }
    engineStarted_ = true;
    Logger::log("Starting app engine");
    if (accessibilityObserver_) {
        Platform::accessibility().removeObserver(*accessibilityObserver_);
        accessibilityObserver_.reset();
    }
    Config::shared().logSettings();
    const float frequency = Config::shared().UpdateFrequency();
    if (!(frequency * 60.0f >= static_cast<float>(minimumUpdateInterval.count()))) { // also NaN
        Logger::log("Warning: UpdateFrequency below 1 minute; using 1 minute");
    }
    updateSignatures(false);
    updateTimer_ = Platform::mainQueue().scheduleRepeating(updateInterval(frequency),
                                                           [this] { autoUpdateSignatures(); });
}

std::chrono::milliseconds AppDelegate::updateInterval(float updateFrequencyMinutes) {
    const float seconds = updateFrequencyMinutes * 60.0f; // formed in single precision, then widened
    const double widened = static_cast<double>(seconds);
    if (!(widened >= static_cast<double>(minimumUpdateInterval.count()))) { // also catches NaN
        return minimumUpdateInterval;
    }
    if (widened >= static_cast<double>(maximumUpdateInterval.count())) {
        return maximumUpdateInterval;
    }
    return std::chrono::milliseconds(std::llround(widened * 1000.0));
}

void AppDelegate::autoUpdateSignatures() {
    updateSignatures(false);
}

void AppDelegate::runOnce() {
    writeBanner();
    Config::shared().logSettings();
    updateSignatures(false);
}

namespace {

// A line that belongs to no run: kept out of the capture of the run in progress.
void logOutsideCapture(const std::string& message) {
    const bool capturing = Logger::captureEnabled;
    Logger::captureEnabled = false;
    Logger::log(message);
    Logger::captureEnabled = capturing;
}

void stopCapturing() {
    Logger::captureEnabled = false;
    Logger::capturedLog.clear();
}

} // namespace

void AppDelegate::updateSignatures(bool userInitiated) {
    // Runs share the capture buffer, and a modal alert's nested event loop lets the timer fire while a run
    // still waits for the user: a second run would mix its lines into the first one's deployment log.
    if (updateInProgress_) {
        if (userInitiated) {
            logOutsideCapture("Update Signatures menu selected");
        }
        logOutsideCapture("Update signatures already in progress");
        return;
    }
    updateInProgress_ = true;
    if (userInitiated) {
        Logger::log("Update Signatures menu selected");
    }
    Logger::captureEnabled = true;
    Logger::capturedLog.clear();
    Logger::log("Update signatures started");

    Config& config = Config::shared();
    if (config.SignatureServerAddress().empty() && !config.SignatureServerAutodetect()) {
        const std::string message =
            "Missing SignatureServerAddress configuration. Unable to update signatures.";
        Logger::log(message);
        showUpdateFailedAlert(message, userInitiated);
        finishUpdate(false);
        return;
    }

    auto service = std::make_shared<NetworkService>();
    service_ = service;
    setLoading(true);
    auto handler = std::make_shared<OutlookHandler>();

    std::string address;
    if (!config.UserEmailAddressEditable() || !config.UserEmailAddress().empty()) {
        address = config.UserEmailAddress();
        Logger::log("Using fixed email address: " + address);
    } else {
        address = OutlookHandler::defaultAccount.value_or("");
        Logger::log("Update signatures: using default account: " + address);
        Logger::log("Update signatures: Fetching signature");
    }

    if (address.empty()) {
        Logger::log("Error: Update signatures: no email account available");
        submitDeploymentLog(service, false);
        stopCapturing();
        setLoading(false);
        showUpdateFailedAlert("No email account available", userInitiated);
        finishUpdate(false);
        return;
    }

    // The context holds the service weakly through service_, so the completion the service stores
    // does not keep its own service alive.
    UpdateContext context{handler, address, userInitiated, nullptr};
    service->getSignatures(address, [this, context](std::optional<SignatureDescriptor> outcome) {
        UpdateContext withService = context;
        withService.service = service_;
        handleSignatures(outcome, withService);
    });
}

void AppDelegate::handleSignatures(const std::optional<SignatureDescriptor>& outcome,
                                   const UpdateContext& context) {
    if (!outcome) {
        Logger::log("Error Update signatures: Fetching signature failed");
        submitDeploymentLog(context.service, false);
        stopCapturing();
        showUpdateFailedAlert("Fetching signature failed", context.userInitiated);
        setLoading(false);
        finishUpdate(false);
        return;
    }
    Logger::log("Update signatures: Fetching signature succeeded");
    if (outcome->noSetting) {
        stopCapturing();
        setLoading(false);
        showUpdateFailedAlert("No Outlook signatures are assigned to your email address " + context.address +
                                  ".",
                              context.userInitiated);
        finishUpdate(false);
        return;
    }
    if (windows_.applyController != nullptr) {
        windows_.applyController->signature = *outcome;
        windows_.applyController->updateMessage();
    }

    bool defaultChanged = false;
    bool allSucceeded = true;
    applySignatures(*outcome, *context.handler, defaultChanged, allSucceeded);

    if (allSucceeded) {
        if (context.userInitiated || defaultChanged) {
            Logger::log("Update signatures: Create signatures succeeded");
            openApplyDialog();
        }
    } else {
        showUpdateFailedAlert("Signature creation failed", context.userInitiated);
    }
    submitDeploymentLog(context.service, allSucceeded);
    stopCapturing();
    setLoading(false);
    finishUpdate(allSucceeded);
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

void AppDelegate::applySignatures(const SignatureDescriptor& descriptor, OutlookHandler& outlook,
                                  bool& defaultChanged, bool& allSucceeded) {
    if (descriptor.removeOtherSignatures) {
        outlook.deleteSignatures();
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
    std::vector<std::string> installed;
    for (const auto& [name, content] : descriptor.additionalSignatures) {
        if (outlook.createSignature(name, content)) {
            installed.push_back(name);
        } else {
            allSucceeded = false;
        }
    }
    defaults.setStringArray("additionalSignatures", installed);
}

void AppDelegate::submitDeploymentLog(const std::shared_ptr<NetworkService>& service, bool success) {
    if (!service) {
        return;
    }
    service->submitDeploymentLog(success, Logger::capturedLog);
}

void AppDelegate::finishUpdate(bool success) {
    // The service's last step (sending the deployment log) is already queued; release the service after it.
    if (service_) {
        Platform::mainQueue().post([service = std::move(service_)] {});
    }
    updateInProgress_ = false;
    if (updateFinished_) {
        updateFinished_(success);
    }
}

void AppDelegate::showUpdateFailedAlert(const std::string& message, bool userInitiated) {
    if (Config::shared().SuppressErrorMessages() && !userInitiated) {
        return;
    }
    Platform::alerts().showModal("Update signatures failed", message, "OK");
}

void AppDelegate::openApplyDialog() {
    Logger::log("Opening apply signatures dialog");
    showWindow(windows_.applyWindow, applyWindowFirstShow_);
}

void AppDelegate::setLoading(bool loading) {
    Logger::log(std::string("Loading in progress: ") + (loading ? "true" : "false"));
    if (StatusItem* item = Platform::statusItem(); item != nullptr && item->hasButton()) {
        item->setImage(loading ? "menu_icon_progress" : "menu_icon");
    }
}

void AppDelegate::constructMenu() {
    Config& config = Config::shared();
    std::vector<MenuItem> menu;
    auto add = [&menu](std::string title, std::function<void()> action) {
        menu.push_back(MenuItem{MenuItem::Kind::action, std::move(title), std::move(action), false, false});
    };

    Logger::log("Constructing menu");
    menu.push_back(MenuItem{MenuItem::Kind::title, Platform::bundle().name, {}, false, false});
    menu.push_back(MenuItem::separator());
    Logger::log("Adding Update Signatures option");
    add("Update Signatures", [this] { updateSignatures(true); });
    if (config.ShowLaunchAtLogon()) {
        Logger::log("Adding Launch Automatically at Login option");
        shouldLaunchAtLogin_ = Platform::userDefaults().boolean(launchAtLoginKey).value_or(true);
        applyLaunchAtLogin();
        launchMenuItem_ = menu.size();
        add("Launch Automatically at Login", [this] { launchAtLogin(); });
        menu.back().checkable = true;
        menu.back().checked = shouldLaunchAtLogin_;
    }
    menu.push_back(MenuItem::separator());
    if (config.ShowConfigurationMenu()) {
        Logger::log("Adding Configure option");
        add("Configure", [this] { openConfiguration(); });
        menu.push_back(MenuItem::separator());
    }
    if (config.ShowViewLogMenu()) {
        Logger::log("Adding View Logs option");
        add("View Logs", [this] { showLogs(); });
        menu.push_back(MenuItem::separator());
    }
    Logger::log("Adding About option");
    add("About", [this] { showAbout(); });
    menu.push_back(MenuItem::separator());
    if (config.ShowExitMenu()) {
        Logger::log("Adding Exit option");
        add("Exit", [this] { exit(); });
    }
    if (StatusItem* item = Platform::statusItem()) {
        item->setMenu(std::move(menu));
    }
}

// The check mark must tell what the next login does: the login item follows the flag, and when the
// desktop refuses the change the flag follows the login item instead. An item already as the flag
// wants it is left alone.
void AppDelegate::applyLaunchAtLogin() {
    LoginItem* item = Platform::loginItem();
    if (item == nullptr || !Config::shared().ShowLaunchAtLogon() ||
        item->isInstalled() == shouldLaunchAtLogin_) {
        return;
    }
    const bool done = shouldLaunchAtLogin_ ? item->install() : item->remove();
    if (done) {
        Logger::log(shouldLaunchAtLogin_ ? "Login item installed" : "Login item removed");
    } else {
        shouldLaunchAtLogin_ = item->isInstalled();
    }
}

void AppDelegate::launchAtLogin() {
    Logger::log("Launch Automatically at Login selected");
    shouldLaunchAtLogin_ = !shouldLaunchAtLogin_;
    // The user's choice outlasts the process; the next start begins from it.
    Platform::userDefaults().setBoolean(launchAtLoginKey, shouldLaunchAtLogin_);
    applyLaunchAtLogin();
    if (StatusItem* item = Platform::statusItem(); item != nullptr && launchMenuItem_) {
        item->setChecked(*launchMenuItem_, shouldLaunchAtLogin_);
    }
}

void AppDelegate::showWindow(Window* window, bool& firstShow) {
    Platform::application().activate();
    if (window == nullptr) {
        return;
    }
    if (firstShow) {
        window->center();
        window->setRestorable(true);
        firstShow = false;
    }
    window->show();
}

void AppDelegate::openConfiguration() {
    Logger::log("Configuration menu selected");
    showWindow(windows_.configWindow, configWindowFirstShow_);
}

void AppDelegate::showLogs() {
    Logger::log("View Logs menu selected");
    Platform::workspace().openFile(Logger::logFilePath());
}

void AppDelegate::showAbout() {
    Logger::log("About menu selected");
    Platform::application().activate();
    Platform::application().showAbout();
}

void AppDelegate::exit() {
    Logger::log("Exit menu selected");
    Platform::application().terminate();
}

} // namespace varnoth
