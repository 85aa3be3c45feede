#pragma once

#include "platform/UserDefaults.h"

#include <memory>

namespace varnoth {

// The user's defaults of the application: NSUserDefaults' standard defaults, whose domain is the main
// bundle's identifier. So `defaults write <bundle identifier> UserEmailAddress ...` and the managed
// preferences an administrator sets for that domain are what the agent reads, and what it writes is
// what `defaults read` shows.
//
// Ownership and threads: NSUserDefaults is shared by the process and safe from any thread; this object
// only retains it.
class MacUserDefaults final : public UserDefaults {
public:
    // Nothing when the process has no standard user defaults.
    static std::unique_ptr<MacUserDefaults> Create();
    ~MacUserDefaults() override;

    std::optional<std::string> string(const std::string& key) const override;
    void setString(const std::string& key, const std::string& value) override;
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override;
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override;

private:
    explicit MacUserDefaults(void* defaults) : defaults_(defaults) {}
    void* defaults_; // NSUserDefaults*, retained
};

} // namespace varnoth
