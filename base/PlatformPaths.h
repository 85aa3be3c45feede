#pragma once

#include <filesystem>
#include <vector>

namespace varnoth {

// Where the platform keeps the agent's files. Read from the environment at each call, so a process
// (or a test) that points HOME or the XDG variables elsewhere sees its own folders.
class PlatformPaths {
public:
    static std::filesystem::path home();
    // macOS ~/Library/Logs; elsewhere $XDG_STATE_HOME (default ~/.local/state).
    static std::filesystem::path logsFolder();
    // macOS ~/Library/Application Support; elsewhere $XDG_CONFIG_HOME (default ~/.config).
    static std::filesystem::path applicationSupportFolder();
    // macOS /Library/Varnoth; elsewhere /etc/Varnoth. For a program of the build tree (the tests, a
    // developer's agent) VARNOTH_SYSTEM_CONFIG_DIR replaces it, so tests never read the real one; an
    // installed agent ignores the variable.
    static std::filesystem::path systemConfigFolder();
    // Whether the running program lies in the build tree it was built in.
    static bool runningFromBuildTree();
    // $XDG_DATA_HOME (default ~/.local/share); on macOS ~/Library/Application Support.
    static std::filesystem::path dataFolder();
    // macOS ~/Library/LaunchAgents; elsewhere the same folder below HOME, for the job records.
    static std::filesystem::path launchAgentsFolder();
    // $XDG_CONFIG_HOME/autostart, the desktop's login items.
    static std::filesystem::path autostartFolder();
    // The absolute folders of $XDG_CONFIG_DIRS (default /etc/xdg), the system's share of the desktop's
    // configuration.
    static std::vector<std::filesystem::path> systemConfigDirectories();
    // The launch agents of every user, beside the system configuration folder: /Library/LaunchAgents on
    // macOS (so a test's VARNOTH_SYSTEM_CONFIG_DIR moves it too).
    static std::filesystem::path systemLaunchAgentsFolder();
};

} // namespace varnoth
