#include "core/Logger.h"

#include "platform/Platform.h"
#include "platform/PlatformPaths.h"

#include <cstdio>
#include <ctime>
#include <optional>
#include <system_error>

namespace varnoth {

namespace {

std::optional<std::filesystem::path>& storedPath() {
    static std::optional<std::filesystem::path> path;
    return path;
}

std::string timestamp() {
    const std::time_t now = std::chrono::system_clock::to_time_t(Platform::clock().now());
    std::tm local{};
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
}

void Logger::log(const std::string& message) {
    const std::string line = timestamp() + "  " + message + "\n";
    const std::filesystem::path& path = logFilePath();

    // The Logs folder is standard on macOS, but an XDG state folder may not exist yet.
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);

    std::FILE* file = std::fopen(path.c_str(), "a");
    if (file == nullptr) {
        std::fputs("logging failed\n", stdout);
        std::fflush(stdout);
        return;
    }
    std::fwrite(line.data(), 1, line.size(), file);
    std::fclose(file);

    if (captureEnabled) {
        capturedLog += line;
    }
}

} // namespace varnoth
