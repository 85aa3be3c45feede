#pragma once

#include <optional>
#include <string>

namespace varnoth {

// When the last update run ended and how, kept in the user defaults so that the tray icon's tooltip
// and `--diagnose` can say it, also after a restart.
class LastRun {
public:
    static constexpr const char* timeKey = "LastUpdateTime";     // local "yyyy-MM-dd HH:mm:ss"
    static constexpr const char* resultKey = "LastUpdateResult"; // "Success", or "Failure: " and why

    // Keeps the run's end, now, and shows it in the tooltip.
    static void record(bool succeeded, const std::string& failure);
    // Nothing before the first run.
    static std::optional<LastRun> read();
    // Shows the kept run in the tray icon's tooltip, when there is an icon and a kept run.
    static void show();

    // "Signatures updated 14:02", or "Last update failed 14:02: " and why.
    std::string toolTip() const;

    std::string time;
    bool succeeded = false;
    std::string failure;
};

} // namespace varnoth
