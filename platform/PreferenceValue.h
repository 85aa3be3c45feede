#pragma once

#include <string>

namespace varnoth {

// One value of a property list or of a preferences domain, as the configuration reads it: its type and
// its text, so that a managed preference and the same value in the configuration's property list are
// read by one rule.
struct PreferenceValue {
    enum class Type { text, boolean, integer, real, other };

    Type type = Type::other;
    // The text itself; "true" or "false"; an integer or a real number in decimal; for any other type
    // (array, dictionary, data, date) its name.
    std::string text;

    bool operator==(const PreferenceValue&) const = default;
};

} // namespace varnoth
