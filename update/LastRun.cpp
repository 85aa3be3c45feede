#include "update/LastRun.h"

#include "platform/Platform.h"

#include <ctime>

namespace varnoth {

void LastRun::record(bool succeeded, const std::string& failure) {
    const std::time_t now = std::chrono::system_clock::to_time_t(Platform::clock().now());
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    UserDefaults& defaults = Platform::userDefaults();
    defaults.setString(timeKey, text);
    defaults.setString(resultKey, succeeded ? "Success" : "Failure: " + failure);
    show();
}

std::optional<LastRun> LastRun::read() {
    const UserDefaults& defaults = Platform::userDefaults();
    const auto time = defaults.string(timeKey);
    const auto result = defaults.string(resultKey);
    if (!time || !result) {
        return std::nullopt;
    }
    const std::string failurePrefix = "Failure: ";
    if (*result != "Success" && !result->starts_with(failurePrefix)) {
        return std::nullopt;
    }
    const bool succeeded = *result == "Success";
    return LastRun{*time, succeeded, succeeded ? "" : result->substr(failurePrefix.size())};
}

void LastRun::show() {
    if (StatusItem* item = Platform::statusItem()) {
        if (const auto last = read()) {
            item->setToolTip(last->toolTip());
        }
    }
}

std::string LastRun::toolTip() const {
    // The clock time says enough for a run of the last hour; the date is in --diagnose.
    const std::string clock = time.size() >= 16 ? time.substr(11, 5) : time;
    return succeeded ? "Signatures updated " + clock : "Last update failed " + clock + ": " + failure;
}

} // namespace varnoth
