#include "core/AppDelegate.h"

#include "core/Config.h"
#include "core/Logger.h"
#include "platform/Platform.h"
#include "platform/Window.h"

#include <cmath>

namespace varnoth {

AppDelegate::AppDelegate() = default;

AppDelegate::AppDelegate(Windows windows) : windows_(windows) {}

AppDelegate::~AppDelegate() {
    if (accessibilityObserver_) {
        Platform::accessibility().removeObserver(*accessibilityObserver_);
    }
}

void AppDelegate::applicationDidFinishLaunching() { setUpAgent(); }

void AppDelegate::applicationWillTerminate() { Logger::log("Exiting"); }

void AppDelegate::setUpAgent() {
    const BundleInfo& bundle = Platform::bundle();
    Logger::log("--------------- " + bundle.name + " Version " + bundle.shortVersion + "." + bundle.version +
                " ---------------");
    HostInfo& host = Platform::hostInfo();
    Logger::log("Operating system is macOS " + host.operatingSystemVersion());
    Logger::log("The current user is " + host.loginName());
    if (auto computer = host.computerName()) {
        Logger::log("The current computer is " + *computer);
    }
    setLoading(false);
    constructMenu();

    if (Platform::accessibility().isTrusted(false)) {
        Logger::log("Accessibility permission is set up correctly");
        startEngine();
        return;
    }
    Logger::log("Waiting for accessibility permission");
    requestAccessibility(true);
    accessibilityObserver_ = Platform::accessibility().addObserver([this] { accessibilityPermissionReceived(); });
}

bool AppDelegate::requestAccessibility(bool prompt) {
    const bool trusted = Platform::accessibility().isTrusted(prompt);
    Logger::log(std::string("Application is granted accessibility permission: ") + (trusted ? "true" : "false"));
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
    updateSignatures(false);
    updateTimer_ = Platform::mainQueue().scheduleRepeating(updateInterval(Config::shared().UpdateFrequency()),
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

void AppDelegate::autoUpdateSignatures() { updateSignatures(false); }

void AppDelegate::updateSignatures(bool userInitiated) {
    // The update run arrives with the signature client and the Outlook bridge.
    (void)userInitiated;
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

void AppDelegate::launchAtLogin() {
    Logger::log("Launch Automatically at Login selected");
    shouldLaunchAtLogin_ = !shouldLaunchAtLogin_;
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
