#include "agent/StatusMenu.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "platform/LoginItem.h"
#include "platform/Platform.h"
#include "platform/Window.h"

#include <filesystem>

namespace varnoth {

StatusMenu::StatusMenu(Window* applyWindow, Window* configWindow, std::function<void()> updateSignatures)
    : applyWindow_(applyWindow), configWindow_(configWindow), updateSignatures_(std::move(updateSignatures)) {
}

void StatusMenu::setLoading(bool loading) {
    Logger::log(std::string("Loading in progress: ") + (loading ? "true" : "false"));
    if (StatusItem* item = Platform::statusItem(); item != nullptr && item->hasButton()) {
        item->setImage(loading ? "menu_icon_progress" : "menu_icon");
    }
}

void StatusMenu::constructMenu() {
    Config& config = Config::shared();
    std::vector<MenuItem> menu;
    auto add = [&menu](std::string title, std::function<void()> action) {
        menu.push_back(
            MenuItem{MenuItem::Kind::action, std::move(title), std::move(action), false, false, true});
    };

    Logger::log("Constructing menu");
    menu.push_back(MenuItem{MenuItem::Kind::title, Platform::bundle().name, {}, false, false, true});
    menu.push_back(MenuItem::separator());
    Logger::log("Adding Update Signatures option");
    add("Update Signatures", [this] { updateSignatures_(); });
    if (config.ShowLaunchAtLogon()) {
        Logger::log("Adding Launch Automatically at Login option");
        shouldLaunchAtLogin_ = Platform::userDefaults().boolean(launchAtLoginKey).value_or(true);
        fixLaunchAtLogin();
        applyLaunchAtLogin();
        launchMenuItem_ = menu.size();
        add("Launch Automatically at Login", [this] { launchAtLogin(); });
        menu.back().checkable = true;
        menu.back().checked = shouldLaunchAtLogin_;
        menu.back().enabled = !launchAtLoginFixed_;
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

void StatusMenu::openApplyDialog() {
    Logger::log("Opening apply signatures dialog");
    showWindow(applyWindow_, applyWindowFirstShow_);
}

// The administrator may decide instead of the user: an entry for every user (the installer package's
// launch agent) starts the agent at each login anyway, and a forced LaunchAtLogin outweighs the user's
// choice.
void StatusMenu::fixLaunchAtLogin() {
    LoginItem* item = Platform::loginItem();
    const ManagedPreferences* managed = Platform::managedPreferences();
    const auto forced = managed != nullptr ? managed->forced(launchAtLoginKey) : std::nullopt;
    launchAtLoginFixed_ = true;
    if (item != nullptr && item->isProvidedBySystem()) {
        shouldLaunchAtLogin_ = true;
        Logger::log("Launch Automatically at Login fixed: the agent starts for every user");
    } else if (forced && forced->type == PreferenceValue::Type::boolean) {
        shouldLaunchAtLogin_ = forced->text == "true";
        Logger::log("Launch Automatically at Login fixed by the managed preference LaunchAtLogin");
    } else {
        launchAtLoginFixed_ = false;
    }
}

// The check mark must tell what the next login does: the login item follows the flag, and when the
// desktop refuses the change the flag follows the login item instead. An item already as the flag
// wants it is left alone. Beside an entry for every user the agent's own would start a second agent.
void StatusMenu::applyLaunchAtLogin() {
    LoginItem* item = Platform::loginItem();
    if (item == nullptr || !Config::shared().ShowLaunchAtLogon()) {
        return;
    }
    const bool providedBySystem = item->isProvidedBySystem();
    const bool wanted = shouldLaunchAtLogin_ && !providedBySystem;
    if (item->isInstalled() == wanted) {
        return;
    }
    const bool done = wanted ? item->install() : item->remove();
    if (done) {
        Logger::log(wanted ? "Login item installed" : "Login item removed");
    } else if (!providedBySystem) {
        shouldLaunchAtLogin_ = item->isInstalled();
    }
}

void StatusMenu::launchAtLogin() {
    if (launchAtLoginFixed_) {
        return; // the item is disabled
    }
    Logger::log("Launch Automatically at Login selected");
    shouldLaunchAtLogin_ = !shouldLaunchAtLogin_;
    // The user's choice outlasts the process; the next start begins from it.
    Platform::userDefaults().setBoolean(launchAtLoginKey, shouldLaunchAtLogin_);
    applyLaunchAtLogin();
    if (StatusItem* item = Platform::statusItem(); item != nullptr && launchMenuItem_) {
        item->setChecked(*launchMenuItem_, shouldLaunchAtLogin_);
    }
}

void StatusMenu::showWindow(Window* window, bool& firstShow) {
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

void StatusMenu::openConfiguration() {
    Logger::log("Configuration menu selected");
    showWindow(configWindow_, configWindowFirstShow_);
}

void StatusMenu::showLogs() {
    Logger::log("View Logs menu selected");
    const std::filesystem::path path = Logger::logFilePath();
    // A desktop without an application for text files would otherwise leave the click without an answer.
    Platform::workspace().openFile(path, [path](bool opened) {
        if (!opened) {
            Logger::log("Error: no application opened the log file " + path.string());
            Platform::alerts().showModal(
                "View Logs", "No application could open the log file. You find it at:\n" + path.string(),
                "OK");
        }
    });
}

void StatusMenu::showAbout() {
    Logger::log("About menu selected");
    Platform::application().activate();
    Platform::application().showAbout();
}

void StatusMenu::exit() {
    Logger::log("Exit menu selected");
    Platform::application().terminate();
}

} // namespace varnoth
