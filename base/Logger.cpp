#include "base/Logger.h"

#include "base/PlatformPaths.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace varnoth {

namespace {

std::optional<std::filesystem::path>& storedPath() {
    static std::optional<std::filesystem::path> path;
    return path;
}

// Whether this process has looked at the size of the file at the current path.
bool rotationChecked = false;

std::string timestamp() {
    const std::time_t now = std::chrono::system_clock::to_time_t(Logger::timeSource());
    std::tm local{};
    tzset(); // the computer's zone may have changed while the agent runs
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
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
    rotationChecked = false;
}

std::string Logger::quoted(std::string_view text) {
    std::string result;
    result.reserve(std::min(text.size(), quoteLimit) + 32);
    std::size_t taken = 0;
    for (; taken < text.size() && result.size() < quoteLimit; ++taken) {
        const auto byte = static_cast<unsigned char>(text[taken]);
        if (byte == '\n') {
            result += "\\n";
        } else if (byte < 0x20 && byte != '\t') {
            static constexpr char hex[] = "0123456789ABCDEF";
            result += "\\x";
            result += hex[byte >> 4];
            result += hex[byte & 0xF];
        } else {
            result += static_cast<char>(byte);
        }
    }
    if (taken < text.size()) {
        // Never end inside a UTF-8 sequence.
        while (taken > 0 && (static_cast<unsigned char>(text[taken]) & 0xC0) == 0x80) {
            --taken;
            result.pop_back();
        }
        result += "\u2026 (" + std::to_string(text.size()) + " bytes in all)";
    }
    return result;
}

void Logger::log(const std::string& message) {
    const std::string line = timestamp() + "  " + message + "\n";
    const std::filesystem::path& path = logFilePath();

    // The Logs folder is standard on macOS, but an XDG state folder may not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);

    if (!rotationChecked) {
        rotationChecked = true;
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            static_cast<std::uintmax_t>(status.st_size) > rotateBytes) {
            ::rename(path.c_str(), (path.string() + ".1").c_str());
        }
    }

    // Not through a link at the path, and never blocking on a FIFO someone put there.
    const int file =
        ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    struct stat status {};
    // A character device is accepted for /dev/null, where a configuration check sends its lines.
    if (file < 0 || ::fstat(file, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode))) {
        if (file >= 0) {
            ::close(file);
        }
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
