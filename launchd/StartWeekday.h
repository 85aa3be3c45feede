#pragma once

#include <cstdint>
#include <optional>
#include <type_traits>

namespace varnoth {

// The weekday of a calendar start, Monday first; Sunday is 7, never 0.
enum class StartWeekday : std::int64_t {
    monday = 1,
    tuesday = 2,
    wednesday = 3,
    thursday = 4,
    friday = 5,
    saturday = 6,
    sunday = 7,
};

constexpr std::int64_t rawValue(StartWeekday weekday) {
    return static_cast<std::int64_t>(weekday);
}

// Nothing for a number outside 1...7, 0 included.
constexpr std::optional<StartWeekday> startWeekdayFromRawValue(std::int64_t raw) {
    if (raw < 1 || raw > 7) {
        return std::nullopt;
    }
    return static_cast<StartWeekday>(raw);
}

constexpr std::optional<StartWeekday> fromRawValue(std::type_identity<StartWeekday>, std::int64_t raw) {
    return startWeekdayFromRawValue(raw);
}

} // namespace varnoth
