#pragma once

#include "config/Config.h"

#include <memory>
#include <string>
#include <vector>

namespace varnoth {

// What an administrator checks in a deployment (varnoth-agent --print-config): the configuration file
// search as the log would show it, the file that was read, the managed settings, and each effective
// setting with its source (managed, file, user or default) or the values it refused. Reading the
// configuration for the report leaves the log file alone.
class ConfigReport {
public:
    explicit ConfigReport(const Config::Locations& locations);

    // The messages the configuration search wrote, without timestamps, in order.
    const std::vector<std::string>& searchLines() const { return searchLines_; }
    const Config& config() const { return *config_; }
    // False when no file was found or the file could not be read: every setting is then a default.
    bool fileRead() const;
    std::string text() const;
    // Each reported setting's line, the log's entry first, then the directory discovery settings.
    std::vector<std::string> settingLines() const;
    // "SignatureServerPort: 7100 (managed)"; the interval as the timer takes it, in minutes.
    static std::string line(const Config::Setting& setting);

private:
    std::vector<std::string> searchLines_;
    std::unique_ptr<Config> config_;
};

} // namespace varnoth
