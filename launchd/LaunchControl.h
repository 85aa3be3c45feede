#pragma once

#include "launchd/AgentStatus.h"
#include "launchd/LaunchAgent.h"
#include "launchd/LaunchControlError.h"
#include "launchd/PropertyListDecoder.h"
#include "launchd/PropertyListEncoder.h"

#include <filesystem>
#include <optional>
#include <string>

namespace varnoth {

// Keeps job records as property-list files in the user's LaunchAgents folder and drives launchd
// through launchctl. File errors are thrown as std::filesystem::filesystem_error, coding errors as
// PropertyListError. launchctl is started without waiting for it; only status reads its output.
class LaunchControl {
public:
    struct Options {
        std::optional<std::filesystem::path>
            launchAgentsFolder; // PlatformPaths::launchAgentsFolder() when empty
        std::filesystem::path launchctl = "/bin/launchctl";
        std::filesystem::path grep = "/usr/bin/grep";
        std::filesystem::path cut = "/usr/bin/cut";
    };

    LaunchControl();
    explicit LaunchControl(Options options);
    virtual ~LaunchControl() = default;

    // The process-wide instance, made on first use.
    static LaunchControl& shared();

    const Options& options() const { return options_; }
    // Not synchronised: meant for set-up before the instance is used (and for tests).
    void setOptions(Options options) { options_ = std::move(options); }

    // Nothing is created; a missing folder is no error here.
    virtual std::filesystem::path launchAgentsURL() const;

    // The file of that exact name in the LaunchAgents folder; no extension is added.
    virtual LaunchAgent readCalled(const std::string& name) const;
    // Sets the record's url to the file read.
    virtual LaunchAgent read(const std::filesystem::path& url) const;

    // Writes <label>.plist into the LaunchAgents folder.
    virtual void write(LaunchAgent& agent) const;
    virtual void writeCalled(LaunchAgent& agent, const std::string& name) const;
    // Appends ".plist" unless the extension is exactly "plist"; writes XML, replacing any file there,
    // and sets the record's url to the file written. On failure url keeps its old value.
    virtual void writeTo(LaunchAgent& agent, std::filesystem::path url) const;

    // Sets url to the file in the LaunchAgents folder that holds the record's label (the last one in
    // name order when several do); leaves it as it was when none does. Unreadable files are skipped.
    virtual void locate(LaunchAgent& agent) const;

    // launchctl load/unload <path>; throw LaunchControlError::urlNotSet without a url.
    void load(const LaunchAgent& agent) const;
    void unload(const LaunchAgent& agent) const;
    // launchctl start/stop <label>.
    void start(const LaunchAgent& agent) const;
    void stop(const LaunchAgent& agent) const;
    // launchctl list | grep <label> | cut -f1, read to its end. See statusFromListing.
    AgentStatus status(const LaunchAgent& agent) const;

    // The answer for the pipeline's output: "-" is loaded, nothing (or text that is not UTF-8) is
    // unloaded, a decimal number is running with that pid. Anything else means grep matched several
    // lines (labels that contain this one match too) or an odd first column: then the line of
    // grepOutput whose label column equals the label decides, and without such a line it is unloaded.
    static AgentStatus statusFromListing(const std::string& cutOutput, const std::string& grepOutput,
                                         const std::string& label);

    PropertyListEncoder encoder; // XML
    PropertyListDecoder decoder; // XML or binary

private:
    void launchctl(const std::string& command, const std::string& argument) const;

    Options options_;
};

} // namespace varnoth
