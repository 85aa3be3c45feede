#pragma once

#include "dialogs/ConfigurationView.h"

namespace varnoth::test {

// The configuration dialog's controls as plain state. Controls start the way the form lays them out:
// box off and enabled, field empty and disabled, OK disabled.
class FakeConfigurationView final : public ConfigurationView {
public:
    std::string emailText() const override { return email; }
    void setEmailText(const std::string& text) override { email = text; }
    void setEmailInputEnabled(bool enabled) override { emailEnabled = enabled; }
    CheckState checkboxState() const override { return checkbox; }
    void setCheckboxState(CheckState state) override { checkbox = state; }
    void setCheckboxEnabled(bool enabled) override { checkboxEnabled = enabled; }
    void setOkButtonEnabled(bool enabled) override { okEnabled = enabled; }
    void closeWindow() override { ++closes; }

    std::string email;
    bool emailEnabled = false;
    CheckState checkbox = CheckState::off;
    bool checkboxEnabled = true;
    bool okEnabled = false;
    int closes = 0;
};

} // namespace varnoth::test
