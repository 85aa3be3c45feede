#pragma once

#include <string>

namespace varnoth {

// The controls of the configuration dialog, as its controller sees them: the check box that turns the
// fixed address on, the address field and the OK button.
class ConfigurationView {
public:
    // A check box may also show the mixed state; only on counts as checked.
    enum class CheckState { off, on, mixed };

    virtual ~ConfigurationView() = default;

    virtual std::string emailText() const = 0;
    virtual void setEmailText(const std::string& text) = 0;
    virtual void setEmailInputEnabled(bool enabled) = 0;

    virtual CheckState checkboxState() const = 0;
    virtual void setCheckboxState(CheckState state) = 0;
    virtual void setCheckboxEnabled(bool enabled) = 0;

    virtual void setOkButtonEnabled(bool enabled) = 0;

    // The sentence above the controls, and the hint under the field (hidden while empty).
    virtual void setExplanation(const std::string& text) = 0;
    virtual void setHint(const std::string& text) = 0;

    virtual void closeWindow() = 0;
};

} // namespace varnoth
