#pragma once

#include "platform/Accessibility.h"
#include "platform/RepeatingTimer.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

namespace varnoth {

class Window;

// Owns every long-lived object of the agent: the status item and its menu, the update timer, the
// dialog windows and the accessibility observer. Everything here runs on the main thread.
class AppDelegate {
public:
    struct Windows {
        Window* applyWindow = nullptr;
        Window* configWindow = nullptr;
    };

    // The shortest timer interval; a smaller or unusable UpdateFrequency is raised to it, so a mistyped
    // configuration cannot make the agent hammer the signature server.
    static constexpr std::chrono::seconds minimumUpdateInterval{60};
    // The longest interval a desktop timer holds (about 24 days).
    static constexpr std::chrono::seconds maximumUpdateInterval{24 * 24 * 3600};
    static constexpr std::chrono::milliseconds engineStartDelay{500};

    AppDelegate();
    explicit AppDelegate(Windows windows);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // The platform's launch and termination notifications.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();

    void setUpAgent();
    bool requestAccessibility(bool prompt);
    void accessibilityPermissionReceived();
    void startEngine();
    void autoUpdateSignatures();

    // One update run; userInitiated when the user chose it from the menu.
    void updateSignatures(bool userInitiated);

    // Status item and menu.
    void setLoading(bool loading);
    void constructMenu();
    void launchAtLogin();
    void openConfiguration();
    void showLogs();
    void showAbout();
    void exit();

    // The timer interval UpdateFrequency asks for, within the bounds above.
    static std::chrono::milliseconds updateInterval(float updateFrequencyMinutes);

    bool engineStarted() const { return engineStarted_; }
    const RepeatingTimer* updateTimer() const { return updateTimer_.get(); }
    bool shouldLaunchAtLogin() const { return shouldLaunchAtLogin_; }

private:
    void showWindow(Window* window, bool& firstShow);

    Windows windows_;
    std::unique_ptr<RepeatingTimer> updateTimer_;
    std::optional<Accessibility::Token> accessibilityObserver_;
    bool applyWindowFirstShow_ = true;
    bool configWindowFirstShow_ = true;
    bool shouldLaunchAtLogin_ = true;
    std::optional<std::size_t> launchMenuItem_; // index in the menu, when the item is shown
    bool engineStarted_ = false;
};

} // namespace varnoth
