#pragma once

#include "platform/UserDefaults.h"

#include <map>
#include <variant>

namespace varnoth {

// User defaults in memory.
class MemoryUserDefaults final : public UserDefaults {
public:
    std::optional<std::string> string(const std::string& key) const override { return get<std::string>(key); }
    void setString(const std::string& key, const std::string& value) override { values_[key] = value; }
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override {
        return get<std::vector<std::string>>(key);
    }
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override {
        values_[key] = value;
    }
    bool contains(const std::string& key) const { return values_.count(key) != 0; }
    using Values = std::map<std::string, std::variant<std::string, std::vector<std::string>>>;
    // Everything stored, so a test can tell that nothing changed.
    const Values& values() const { return values_; }

private:
    // The value when the key holds one of type T.
    template <typename T> std::optional<T> get(const std::string& key) const {
        const auto found = values_.find(key);
        if (found == values_.end() || !std::holds_alternative<T>(found->second)) {
            return std::nullopt;
        }
        return std::get<T>(found->second);
    }
    Values values_;
};

} // namespace varnoth
