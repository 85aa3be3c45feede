#pragma once

#include "launchd/LaunchAgent.h"
#include "platform/Accessibility.h"
#include "platform/RepeatingTimer.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varnoth {

class ApplyViewController;
class NetworkService;
class OutlookHandler;
class Window;
struct SignatureDescriptor;

// Owns every long-lived object of the agent: the status item and its menu, the update timer, the
// dialog windows and the accessibility observer. Everything here runs on the main thread.
class AppDelegate {
public:
    struct Windows {
        Window* applyWindow = nullptr;
        Window* configWindow = nullptr;
        ApplyViewController* applyController = nullptr; // the apply window's content
    };

    // What the second half of an update run needs from the first.
    struct UpdateContext {
        std::shared_ptr<OutlookHandler> handler;
        std::string address;
        bool userInitiated = false;
        std::shared_ptr<NetworkService> service;
    };

    // The shortest timer interval; a smaller or unusable UpdateFrequency is raised to it, so a mistyped
    // configuration cannot make the agent hammer the signature server.
    static constexpr std::chrono::seconds minimumUpdateInterval{60};
    // The longest interval a desktop timer holds (about 24 days).
    static constexpr std::chrono::seconds maximumUpdateInterval{24 * 24 * 3600};
    static constexpr std::chrono::milliseconds engineStartDelay{500};
    // The user defaults key of the user's last launch-at-login choice; never chosen means true.
    static constexpr const char* launchAtLoginKey = "LaunchAtLogin";

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

    // One update run; userInitiated when the user chose it from the menu. A run asked for while another
    // is in progress (waiting for its answer or showing its alert) is refused with a log line of its own.
    void updateSignatures(bool userInitiated);
    void handleSignatures(const std::optional<SignatureDescriptor>& outcome, const UpdateContext& context);
    void showUpdateFailedAlert(const std::string& message, bool userInitiated);
    void openApplyDialog();
    bool updateInProgress() const { return updateInProgress_; }
    // Called at the end of every update run with whether it succeeded.
    void setUpdateFinishedHandler(std::function<void(bool)> handler) { updateFinished_ = std::move(handler); }

    // A single update as the timer runs it, without menu, timer or accessibility wait.
    void runOnce();

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
    // The agent's own job record: label the bundle identifier, program the bundle name.
    const LaunchAgent& agent() const { return agent_; }

private:
    void writeBanner();
    void applyLaunchAtLogin();
    void showWindow(Window* window, bool& firstShow);
    void applySignatures(const SignatureDescriptor& descriptor, OutlookHandler& outlook, bool& defaultChanged,
                         bool& allSucceeded);
    void submitDeploymentLog(const std::shared_ptr<NetworkService>& service, bool success);
    void finishUpdate(bool success);

    Windows windows_;
    std::unique_ptr<RepeatingTimer> updateTimer_;
    LaunchAgent agent_;
    std::optional<Accessibility::Token> accessibilityObserver_;
    bool applyWindowFirstShow_ = true;
    bool configWindowFirstShow_ = true;
    bool shouldLaunchAtLogin_ = true;
    std::optional<std::size_t> launchMenuItem_; // index in the menu, when the item is shown
    bool engineStarted_ = false;
    bool updateInProgress_ = false;
    std::shared_ptr<NetworkService> service_; // the run's service, alive until its exchange is over
    std::function<void(bool)> updateFinished_;
};

} // namespace varnoth
