#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace varnoth {

// How launchd schedules the job's process; stored as its capitalised name.
enum class ProcessType { standard, background, adaptive, interactive };

std::string rawValue(ProcessType type);

// Nothing for any other text; the comparison is case-sensitive.
std::optional<ProcessType> processTypeFromRawValue(std::string_view raw);

inline std::optional<ProcessType> fromRawValue(std::type_identity<ProcessType>, const std::string& raw) {
    return processTypeFromRawValue(raw);
}

} // namespace varnoth
