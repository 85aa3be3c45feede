#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace varnoth {

class NetworkService;
class OutlookHandler;

// `varnoth-agent --diagnose`: the checklist an administrator runs on one Mac, one line per check,
// "ok", "warning" or "failed" with the reason: the configuration file and its values, the signature
// server (one GetSignatures, no deployment log), directory discovery when enabled, Outlook's
// installation, version and mode, the automation and accessibility permissions, the login item and the
// last run. Nothing is written but the log file.
class Diagnosis {
public:
    enum class Status { ok, warning, failed };
    struct Check {
        Status status;
        std::string what, reason;
    };

    explicit Diagnosis(std::ostream& out);
    ~Diagnosis();
    Diagnosis(const Diagnosis&) = delete;
    Diagnosis& operator=(const Diagnosis&) = delete;

    // Runs the checks, prints them in the checklist's order and calls done with the exit status, 0 when
    // nothing failed and 1 otherwise; later, on the main queue, when the server is asked.
    void start(std::function<void(int)> done);

    // "ok      what: reason", the status padded so that the checks line up.
    static std::string line(const Check& check);

private:
    void checkOutlook();
    void checkServer(const std::string& address);
    void finish(Check server);

    std::ostream& out_;
    std::function<void(int)> done_;
    std::vector<Check> head_, tail_; // before and after the server's line
    std::unique_ptr<OutlookHandler> outlook_;
    std::shared_ptr<NetworkService> service_;
};

} // namespace varnoth
