#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/KeyedEncodingContainer.h"
#include "launchd/StartMonth.h"
#include "launchd/StartWeekday.h"

#include <cstdint>
#include <optional>

namespace varnoth {

// One calendar start time of a job; an absent field matches every value, as cron's "*" does.
class StartCalendarInterval {
public:
    // Stores the values as given; only the setters below keep them in range.
    explicit StartCalendarInterval(std::optional<StartMonth> month = std::nullopt,
                                   std::optional<StartWeekday> weekday = std::nullopt,
                                   std::optional<std::int64_t> day = std::nullopt,
                                   std::optional<std::int64_t> hour = std::nullopt,
                                   std::optional<std::int64_t> minute = std::nullopt)
        : month(month), weekday(weekday), day_(day), hour_(hour), minute_(minute) {}

    std::optional<StartMonth> month;
    std::optional<StartWeekday> weekday;

    const std::optional<std::int64_t>& day() const { return day_; }
    const std::optional<std::int64_t>& hour() const { return hour_; }
    const std::optional<std::int64_t>& minute() const { return minute_; }
    // Clamp into 1...31, 0...23 and 0...59.
    void setDay(std::optional<std::int64_t> day);
    void setHour(std::optional<std::int64_t> hour);
    void setMinute(std::optional<std::int64_t> minute);

    // Out-of-range numbers read from a file stay as read; a Month or Weekday outside its cases fails.
    static StartCalendarInterval decode(const KeyedDecodingContainer& container);
    void encode(KeyedEncodingContainer& container) const;

    bool operator==(const StartCalendarInterval&) const = default;

private:
    std::optional<std::int64_t> day_;
    std::optional<std::int64_t> hour_;
    std::optional<std::int64_t> minute_;
};

} // namespace varnoth
