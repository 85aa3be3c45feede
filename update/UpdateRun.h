#pragma once

#include "outlook/OutlookState.h"
#include "server/SignatureDescriptor.h"

#include <memory>
#include <optional>
#include <string>

namespace varnoth {

class ApplyViewController;
class NetworkService;
class OutlookHandler;

// One update run, made for that run: the mailbox address, the request, the installation of the answer,
// the "additionalSignatures" bookkeeping, the deployment log and the failure alert. Whoever starts it
// keeps it until it reports its end, and a little longer (see Delegate::updateFinished).
class UpdateRun {
public:
    // What the run needs from whoever started it.
    class Delegate {
    public:
        virtual ~Delegate() = default;
        virtual void setLoading(bool loading) = 0;
        virtual void openApplyDialog() = 0;
        // The run is over, its deployment log sent. Called from within the run's last step, so the run
        // may be released only after it returns.
        virtual void updateFinished(bool success) = 0;
    };

    // applyController, the apply window's content, is handed the answer before the installation begins.
    UpdateRun(bool userInitiated, ApplyViewController* applyController, Delegate& delegate);
    ~UpdateRun();
    UpdateRun(const UpdateRun&) = delete;
    UpdateRun& operator=(const UpdateRun&) = delete;

    // The first half: the address and the request. The second half runs when the answer arrives.
    void start();
    void handleSignatures(const std::optional<SignatureDescriptor>& outcome);
    static void showUpdateFailedAlert(const std::string& message, bool userInitiated);
    // Why the run failed, as its alert says it; empty while it has not failed.
    const std::string& failure() const { return failure_; }

private:
    void applySignatures(const SignatureDescriptor& descriptor, OutlookHandler& outlook, bool& defaultChanged,
                         bool& allSucceeded);
    // Ends the run before any signature operation, with the cause's one line, alert and failed log.
    void stopBlocked(OutlookState::Blocker blocker);
    void submitDeploymentLog(bool success);
    void finish(bool success);

    const bool userInitiated_;
    ApplyViewController* const applyController_;
    Delegate& delegate_;
    std::shared_ptr<OutlookHandler> handler_;
    std::shared_ptr<NetworkService> service_; // released first, with the completion that refers to the run
    std::string address_;
    std::string failure_;
};

} // namespace varnoth
