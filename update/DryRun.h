#pragma once

#include "server/SignatureDescriptor.h"

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varnoth {

class NetworkService;
class OutlookHandler;

// `varnoth-agent --dry-run`: what an update run would change for a mailbox, one line per change, with
// nothing written: Outlook is only read, no deployment log is sent and the user defaults stay as they
// are. The answer comes from the signature server or, for templates tested offline, from a saved
// answer document.
class DryRun {
public:
    static constexpr int nothingToChange = 0;
    static constexpr int failed = 1;
    static constexpr int wouldChange = 3;

    struct Options {
        std::string email;                // empty: the address a run would use
        std::filesystem::path answerFile; // empty: ask the server
    };

    DryRun(Options options, std::ostream& out);
    ~DryRun();
    DryRun(const DryRun&) = delete;
    DryRun& operator=(const DryRun&) = delete;

    // Prints the changes and calls done with the exit status, later, on the main queue when the server
    // is asked.
    void start(std::function<void(int)> done);

    // The changes a timer run would make for the answer, against what Outlook holds now, in the order
    // the run makes them; a default that changes opens the apply dialog, which the last line says.
    static std::vector<std::string> changes(const SignatureDescriptor& answer, OutlookHandler& outlook);

    // An answer document as saved from the server: UTF-8 or UTF-16LE, framed or not.
    static std::optional<SignatureDescriptor> readAnswer(const std::filesystem::path& file);

private:
    void finish(const std::optional<SignatureDescriptor>& answer);
    int fail(const std::string& why);

    Options options_;
    std::ostream& out_;
    std::function<void(int)> done_;
    std::unique_ptr<OutlookHandler> outlook_;
    std::shared_ptr<NetworkService> service_;
};

} // namespace varnoth
