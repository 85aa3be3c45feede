#include "agent/AppDelegate.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "update/LastRun.h"

#include <cmath>

namespace varnoth {

AppDelegate::AppDelegate() : AppDelegate(Windows{}) {}

AppDelegate::AppDelegate(Windows windows)
    : windows_(windows), menu_(windows.applyWindow, windows.configWindow, [this] { updateSignatures(true); }),
      agent_(Platform::bundle().identifier, {Platform::bundle().name}) {}

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
    // The Mac's version string names no system ("Version 14.5 (Build 23F79)"); elsewhere the text does.
    const std::string name = host.operatingSystemName();
    Logger::log("Operating system is " + (name.empty() ? "" : name + " ") + host.operatingSystemVersion());
    Logger::log("The current user is " + host.loginName());
    if (auto computer = host.computerName()) {
        Logger::log("The current computer is " + *computer);
    }
}

void AppDelegate::setUpAgent() {
    writeBanner();
    menu_.setLoading(false);
    menu_.constructMenu();
    LastRun::show();

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
    once_ = true;
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

} // namespace

void AppDelegate::updateSignatures(bool userInitiated) {
    // Runs share the capture buffer, and a modal alert's nested event loop lets the timer fire while a run
    // still waits for the user: a second run would mix its lines into the first one's deployment log.
    if (run_) {
        if (userInitiated) {
            logOutsideCapture("Update Signatures menu selected");
        }
        logOutsideCapture("Update signatures already in progress");
        return;
    }
    run_ = std::make_unique<UpdateRun>(userInitiated, windows_.applyController, *this);
    run_->start();
}

void AppDelegate::setLoading(bool loading) {
    menu_.setLoading(loading);
}

void AppDelegate::openApplyDialog() {
    // A single run shows no window; its log, which the server receives too, says only what happened.
    if (once_) {
        return;
    }
    menu_.openApplyDialog();
}

void AppDelegate::updateFinished(bool success) {
    LastRun::record(success, run_ ? run_->failure() : std::string());
    // Called from within the run's last step; release the run after it.
    if (run_) {
        Platform::mainQueue().post([run = std::shared_ptr<UpdateRun>(std::move(run_))] {});
    }
    if (updateFinished_) {
        updateFinished_(success);
    }
}

} // namespace varnoth
