#pragma once

#include <cstdint>
#include <optional>
#include <type_traits>

namespace varnoth {

// The month of a calendar start, stored in job files as 1...12.
enum class StartMonth : std::int64_t {
    january = 1,
    february = 2,
    march = 3,
    april = 4,
    may = 5,
    june = 6,
    july = 7,
    august = 8,
    september = 9,
    october = 10,
    november = 11,
    december = 12,
};

constexpr std::int64_t rawValue(StartMonth month) {
    return static_cast<std::int64_t>(month);
}

// Nothing for a number outside 1...12.
constexpr std::optional<StartMonth> startMonthFromRawValue(std::int64_t raw) {
    if (raw < 1 || raw > 12) {
        return std::nullopt;
    }
    return static_cast<StartMonth>(raw);
}

constexpr std::optional<StartMonth> fromRawValue(std::type_identity<StartMonth>, std::int64_t raw) {
    return startMonthFromRawValue(raw);
}

} // namespace varnoth
