#pragma once

#include <filesystem>
#include <string>

namespace varnoth {

// The agent's log file: one timestamped line per event. Everything is static; the update run turns
// capture on to collect its own lines for the deployment log.
class Logger {
public:
    static void log(const std::string& message);

    // The log file; fixed on first use unless a test or the desktop layer sets it before.
    static const std::filesystem::path& logFilePath();
    static void setLogFilePath(std::filesystem::path path);

    static inline bool captureEnabled = false;
    static inline std::string capturedLog;
};

} // namespace varnoth
