#include "base/Logger.h"

#include "base/PlatformPaths.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utf8proc.h>

namespace varnoth {

namespace {

std::optional<std::filesystem::path>& storedPath() {
    static std::optional<std::filesystem::path> path;
    return path;
}

// The log file for appending, or -1: not through a link at the path, and never blocking on a FIFO
// someone put there. A character device is accepted for /dev/null, where a configuration check sends
// its lines.
int openLogFile(const std::filesystem::path& path, struct stat& status) {
    const int file =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (file >= 0 && (::fstat(file, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)))) {
        ::close(file);
        return -1;
    }
    return file;
}

std::string timestamp() {
    const std::time_t now = std::chrono::system_clock::to_time_t(Logger::timeSource());
    std::tm local{};
    tzset(); // the computer's zone may have changed while the agent runs
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

// What the signature server's frame markers ("##!! DATA BLOCK START !!##" and "... END ...") start
// with: one in the log would end the deployment log's request early, and what follows could pose as
// a request of its own.
constexpr std::string_view framePrefix = "##!! DATA BLOCK";

// The text up to limit bytes, with what could forge a log line or the deployment log escaped: "\x1B"
// for a C0 control other than tab (and line feed, unless lineFeeds), DEL, a byte that is not UTF-8
// or the "#" that starts a frame marker, "\u0085" for a C1 control or Unicode's line and paragraph
// separators, and "\n" for a line feed. taken is how much of the text that used.
std::string escaped(std::string_view text, bool lineFeeds, std::size_t limit, std::size_t& taken) {
    const auto hex = [](const char* prefix, std::uint32_t value, int digits) {
        static constexpr char digit[] = "0123456789ABCDEF";
        std::string escape = prefix;
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
            escape += digit[(value >> shift) & 0xF];
        }
        return escape;
    };
    std::string result;
    result.reserve(std::min(text.size(), limit) + 16);
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (taken = 0; taken < text.size();) {
        utf8proc_int32_t code = 0;
        const utf8proc_ssize_t length =
            utf8proc_iterate(bytes + taken, static_cast<utf8proc_ssize_t>(text.size() - taken), &code);
        const std::size_t step = length > 0 ? static_cast<std::size_t>(length) : 1;
        const std::string piece = length <= 0    ? hex("\\x", bytes[taken], 2)
                                  : code == '\n' ? std::string(lineFeeds ? "\\n" : "\n")
                                  : (code < 0x20 && code != '\t') || code == 0x7F ||
                                          (code == '#' && text.substr(taken).starts_with(framePrefix))
                                      ? hex("\\x", static_cast<std::uint32_t>(code), 2)
                                  : (code >= 0x80 && code <= 0x9F) || code == 0x2028 || code == 0x2029
                                      ? hex("\\u", static_cast<std::uint32_t>(code), 4)
                                      : std::string(text.substr(taken, step));
        if (result.size() + piece.size() > limit) {
            break;
        }
        result += piece;
        taken += step;
    }
    return result;
}

} // namespace

const std::filesystem::path& Logger::logFilePath() {
    if (!storedPath()) {
        storedPath() = PlatformPaths::logsFolder() / "Varnoth Brelvane Agent.log";
    }
    return *storedPath();
}

void Logger::setLogFilePath(std::filesystem::path path) {
    storedPath() = std::move(path);
}

std::string Logger::quoted(std::string_view text) {
    std::size_t taken = 0;
    std::string result = escaped(text, true, quoteLimit, taken);
    if (taken < text.size()) {
        result += "\u2026 (" + std::to_string(text.size()) + " bytes in all)";
    }
    return result;
}

void Logger::log(const std::string& message) {
    // Lines of the agent's own may span several lines; nothing else that is not text gets through.
    std::size_t taken = 0;
    const std::string line = timestamp() + "  " + escaped(message, false, SIZE_MAX, taken) + "\n";
    const std::filesystem::path& path = logFilePath();

    // The Logs folder is standard on macOS, but an XDG state folder may not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);

    struct stat status {};
    int file = openLogFile(path, status);
    // Checked at every line, as a tray agent runs for weeks.
    if (file >= 0 && S_ISREG(status.st_mode) && static_cast<std::uintmax_t>(status.st_size) > rotateBytes) {
        ::rename(path.c_str(), (path.string() + ".1").c_str());
        ::close(file);
        file = openLogFile(path, status);
    }
    if (file < 0) {
        std::fputs("logging failed\n", stdout);
        std::fflush(stdout);
        return;
    }
    if (S_ISREG(status.st_mode) && (status.st_mode & 0077) != 0) {
        ::fchmod(file, 0600); // a file from an older version, readable by others
    }
    for (std::size_t written = 0; written < line.size();) {
        const ssize_t count = ::write(file, line.data() + written, line.size() - written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    ::close(file);

    if (captureEnabled) {
        capturedLog += line;
    }
}

} // namespace varnoth
