#pragma once

#include "agent/StatusMenu.h"
#include "launchd/LaunchAgent.h"
#include "platform/Accessibility.h"
#include "platform/RepeatingTimer.h"
#include "update/UpdateRun.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace varnoth {

class ApplyViewController;
class Window;

// Owns every long-lived object of the agent: the status menu, the update timer, the dialog windows, the
// accessibility observer and the update run in progress. Everything here runs on the main thread; the
// run's network waits run on the platform's worker, so the menu answers while a run is in progress.
class AppDelegate final : public UpdateRun::Delegate {
public:
    struct Windows {
        Window* applyWindow = nullptr;
        Window* configWindow = nullptr;
        ApplyViewController* applyController = nullptr; // the apply window's content
    };

    // The shortest timer interval; a smaller or unusable UpdateFrequency is raised to it, so a mistyped
    // configuration cannot make the agent hammer the signature server.
    static constexpr std::chrono::seconds minimumUpdateInterval{60};
    // The longest interval a desktop timer holds (about 24 days).
    static constexpr std::chrono::seconds maximumUpdateInterval{24 * 24 * 3600};
    static constexpr std::chrono::milliseconds engineStartDelay{500};

    AppDelegate();
    explicit AppDelegate(Windows windows);
    ~AppDelegate() override;
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
    bool updateInProgress() const { return run_ != nullptr; }
    // Called at the end of every update run with whether it succeeded.
    void setUpdateFinishedHandler(std::function<void(bool)> handler) { updateFinished_ = std::move(handler); }

    // A single update as the timer runs it, without menu, timer or accessibility wait.
    void runOnce();

    // What an update run asks of the agent.
    void setLoading(bool loading) override;
    void openApplyDialog() override;
    void updateFinished(bool success) override;

    StatusMenu& statusMenu() { return menu_; }

    // The timer interval UpdateFrequency asks for, within the bounds above.
    static std::chrono::milliseconds updateInterval(float updateFrequencyMinutes);

    bool engineStarted() const { return engineStarted_; }
    const RepeatingTimer* updateTimer() const { return updateTimer_.get(); }
    // The agent's own job record: label the bundle identifier, program the bundle name.
    const LaunchAgent& agent() const { return agent_; }

private:
    void writeBanner();

    Windows windows_;
    StatusMenu menu_;
    std::unique_ptr<RepeatingTimer> updateTimer_;
    LaunchAgent agent_;
    std::optional<Accessibility::Token> accessibilityObserver_;
    bool engineStarted_ = false;
    bool once_ = false;              // a single run (runOnce): no dialog opens
    std::unique_ptr<UpdateRun> run_; // the run in progress, alive until its exchange is over
    std::function<void(bool)> updateFinished_;
};

} // namespace varnoth
