#include "base/PlatformPaths.h"

#include <algorithm>

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#ifdef __APPLE__
#include <cstdint>
#include <mach-o/dyld.h>
#endif

namespace varnoth {

namespace {

// An XDG variable counts only when it holds an absolute path.
std::filesystem::path fromEnvironment(const char* name, const std::filesystem::path& fallback) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] == '/') {
        return value;
    }
    return fallback;
}

} // namespace

std::filesystem::path PlatformPaths::home() {
    if (const char* value = std::getenv("HOME"); value != nullptr && value[0] != '\0') {
        return value;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

std::filesystem::path PlatformPaths::logsFolder() {
#ifdef __APPLE__
    return home() / "Library" / "Logs";
#else
    return fromEnvironment("XDG_STATE_HOME", home() / ".local" / "state");
#endif
}

std::filesystem::path PlatformPaths::applicationSupportFolder() {
#ifdef __APPLE__
    return home() / "Library" / "Application Support";
#else
    return fromEnvironment("XDG_CONFIG_HOME", home() / ".config");
#endif
}

bool PlatformPaths::runningFromBuildTree() {
    static const bool inside = [] {
        std::filesystem::path executable;
#ifdef __APPLE__
        char buffer[4096];
        std::uint32_t size = sizeof buffer;
        if (_NSGetExecutablePath(buffer, &size) == 0) {
            executable = buffer;
        }
#endif
        std::error_code error;
#ifndef __APPLE__
        executable = std::filesystem::read_symlink("/proc/self/exe", error);
#endif
        executable = std::filesystem::weakly_canonical(executable, error);
        const std::filesystem::path tree(VARNOTH_BUILD_TREE);
        if (error || executable.empty()) {
            return false;
        }
        const auto [treeEnd, unused] =
            std::mismatch(tree.begin(), tree.end(), executable.begin(), executable.end());
        return treeEnd == tree.end();
    }();
    return inside;
}

std::filesystem::path PlatformPaths::systemConfigFolder() {
    if (const char* value = std::getenv("VARNOTH_SYSTEM_CONFIG_DIR");
        value != nullptr && value[0] != '\0' && runningFromBuildTree()) {
        return value;
    }
#ifdef __APPLE__
    return "/Library/Varnoth";
#else
    return "/etc/Varnoth";
#endif
}

std::filesystem::path PlatformPaths::dataFolder() {
#ifdef __APPLE__
    return home() / "Library" / "Application Support";
#else
    return fromEnvironment("XDG_DATA_HOME", home() / ".local" / "share");
#endif
}

std::filesystem::path PlatformPaths::launchAgentsFolder() {
    return home() / "Library" / "LaunchAgents";
}

std::filesystem::path PlatformPaths::autostartFolder() {
    return fromEnvironment("XDG_CONFIG_HOME", home() / ".config") / "autostart";
}

std::vector<std::filesystem::path> PlatformPaths::systemConfigDirectories() {
    const char* value = std::getenv("XDG_CONFIG_DIRS");
    const std::string list = value != nullptr && value[0] != '\0' ? value : "/etc/xdg";
    std::vector<std::filesystem::path> folders;
    std::size_t start = 0;
    while (start <= list.size()) {
        const std::size_t end = std::min(list.find(':', start), list.size());
        if (end > start && list[start] == '/') {
            folders.emplace_back(list.substr(start, end - start));
        }
        start = end + 1;
    }
    return folders;
}

std::filesystem::path PlatformPaths::systemLaunchAgentsFolder() {
    return systemConfigFolder().parent_path() / "LaunchAgents";
}

} // namespace varnoth
