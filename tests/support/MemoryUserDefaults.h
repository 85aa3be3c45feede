#pragma once

#include "platform/UserDefaults.h"

#include <map>
#include <variant>

namespace varnoth::test {

// User defaults in memory; setMixedArray stores an array with a non-text element.
class MemoryUserDefaults final : public UserDefaults {
public:
    std::optional<std::string> string(const std::string& key) const override {
        auto found = values_.find(key);
        if (found == values_.end() || !std::holds_alternative<std::string>(found->second)) {
            return std::nullopt;
        }
        return std::get<std::string>(found->second);
    }
    void setString(const std::string& key, const std::string& value) override { values_[key] = value; }
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override {
        auto found = values_.find(key);
        if (found == values_.end() || !std::holds_alternative<std::vector<std::string>>(found->second)) {
            return std::nullopt;
        }
        return std::get<std::vector<std::string>>(found->second);
    }
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override {
        values_[key] = value;
    }
    void setMixedArray(const std::string& key) { values_[key] = Mixed{}; }
    bool contains(const std::string& key) const { return values_.count(key) != 0; }

private:
    struct Mixed {};
    std::map<std::string, std::variant<std::string, std::vector<std::string>, Mixed>> values_;
};

} // namespace varnoth::test
