#include "launchd/StartCalendarInterval.h"

#include <algorithm>

namespace varnoth {

namespace {

std::optional<std::int64_t> clamped(std::optional<std::int64_t> value, std::int64_t low, std::int64_t high) {
    if (!value) {
        return value;
    }
    return std::clamp(*value, low, high);
}

} // namespace

void StartCalendarInterval::setDay(std::optional<std::int64_t> day) {
    day_ = clamped(day, 1, 31);
}

void StartCalendarInterval::setHour(std::optional<std::int64_t> hour) {
    hour_ = clamped(hour, 0, 23);
}

void StartCalendarInterval::setMinute(std::optional<std::int64_t> minute) {
    minute_ = clamped(minute, 0, 59);
}

StartCalendarInterval StartCalendarInterval::decode(const KeyedDecodingContainer& container) {
    return StartCalendarInterval(
        container.decodeIfPresent<StartMonth>("Month"), container.decodeIfPresent<StartWeekday>("Weekday"),
        container.decodeIfPresent<std::int64_t>("Day"), container.decodeIfPresent<std::int64_t>("Hour"),
        container.decodeIfPresent<std::int64_t>("Minute"));
}

void StartCalendarInterval::encode(KeyedEncodingContainer& container) const {
    container.encodeIfPresent("Month", month);
    container.encodeIfPresent("Weekday", weekday);
    container.encodeIfPresent("Day", day_);
    container.encodeIfPresent("Hour", hour_);
    container.encodeIfPresent("Minute", minute_);
}

} // namespace varnoth
