#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace varnoth {

// The agent's log file: one timestamped line per event. Everything is static; the update run turns
// capture on to collect its own lines for the deployment log.
//
// The file is the user's own (mode 0600), never written through a symbolic link at its path, and
// kept from growing without end: a line to a file past rotateBytes first moves it to "<name>.1" (one
// generation kept).
class Logger {
public:
    static void log(const std::string& message);

    // Text from outside the agent (the server's answer, a directory value, a name from Outlook) as a
    // log entry quotes it: control characters other than tab escaped ("\n" for a line feed, "\x1B" for
    // the other C0 ones and DEL, "\u0085" for C1 ones and the line and paragraph separators), and bytes
    // that are not UTF-8 as "\xFF", so that it cannot forge a log line or break the deployment log's
    // XML, and cut after quoteLimit bytes with "… (N bytes in all)", so that one bad answer cannot fill
    // the disk or the next request.
    static std::string quoted(std::string_view text);
    static constexpr std::size_t quoteLimit = 16 * 1024;
    static constexpr std::uintmax_t rotateBytes = 10'000'000;

    // The log file; fixed on first use unless a test or the desktop layer sets it before.
    static const std::filesystem::path& logFilePath();
    static void setLogFilePath(std::filesystem::path path);

    // Where the time stamps come from: the system clock until the platform layer installs its own
    // clock here, so that a test's virtual time shows in the log.
    using TimeSource = std::chrono::system_clock::time_point (*)();
    static inline TimeSource timeSource = [] { return std::chrono::system_clock::now(); };

    // "yyyy-MM-dd HH:mm:ss" and the two blanks that follow it in every line.
    static constexpr std::size_t timestampLength = 21;

    static inline bool captureEnabled = false;
    static inline std::string capturedLog;
};

} // namespace varnoth
