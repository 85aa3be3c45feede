#pragma once

#include <cstddef>
#include <functional>
#include <optional>

namespace varnoth {

class Window;

// The status item's icon and menu, the actions behind the menu's items, and the showing of the two
// dialog windows, the configuration window from the menu and the apply window after an update run.
// Everything here runs on the main thread.
class StatusMenu {
public:
    // The user defaults key of the user's last launch-at-login choice; never chosen means true.
    static constexpr const char* launchAtLoginKey = "LaunchAtLogin";

    // updateSignatures runs the "Update Signatures" item's update.
    StatusMenu(Window* applyWindow, Window* configWindow, std::function<void()> updateSignatures);

    void setLoading(bool loading);
    void constructMenu();
    void openApplyDialog();

    // The menu's actions.
    void launchAtLogin();
    void openConfiguration();
    void showLogs();
    void showAbout();
    void exit();

    bool shouldLaunchAtLogin() const { return shouldLaunchAtLogin_; }

private:
    void fixLaunchAtLogin();
    void applyLaunchAtLogin();
    void showWindow(Window* window, bool& firstShow);

    Window* applyWindow_;
    Window* configWindow_;
    std::function<void()> updateSignatures_;
    bool applyWindowFirstShow_ = true;
    bool configWindowFirstShow_ = true;
    bool shouldLaunchAtLogin_ = true;
    bool launchAtLoginFixed_ = false;           // by the administrator: the item is disabled
    std::optional<std::size_t> launchMenuItem_; // index in the menu, when the item is shown
};

} // namespace varnoth
