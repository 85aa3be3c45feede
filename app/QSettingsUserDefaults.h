#pragma once

#include "platform/UserDefaults.h"

#include <QSettings>

namespace varnoth {

// User defaults in QSettings, an INI file under ~/.config (on macOS the agent uses MacUserDefaults).
class QSettingsUserDefaults final : public UserDefaults {
public:
    explicit QSettingsUserDefaults(const std::string& domain);

    std::optional<std::string> string(const std::string& key) const override;
    void setString(const std::string& key, const std::string& value) override;
    std::optional<std::vector<std::string>> stringArray(const std::string& key) const override;
    void setStringArray(const std::string& key, const std::vector<std::string>& value) override;
    std::optional<bool> boolean(const std::string& key) const override;
    void setBoolean(const std::string& key, bool value) override;

private:
    mutable QSettings settings_;
};

} // namespace varnoth
