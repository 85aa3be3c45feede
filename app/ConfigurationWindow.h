#pragma once

#include "app/DialogWindow.h"
#include "dialogs/ConfigurationView.h"
#include "dialogs/ConfigurationViewController.h"

#include <memory>

namespace Ui {
class ConfigurationWindow;
}

namespace varnoth {

// The configuration window: the check box, the address field, OK and Cancel, laid out in
// ConfigurationWindow.ui and driven by the window's own ConfigurationViewController.
class ConfigurationWindow final : public DialogWindow, public ConfigurationView {
public:
    ConfigurationWindow();
    ~ConfigurationWindow() override;

    ConfigurationViewController& controller() { return controller_; }

    std::string emailText() const override;
    void setEmailText(const std::string& text) override;
    void setEmailInputEnabled(bool enabled) override;
    CheckState checkboxState() const override;
    void setCheckboxState(CheckState state) override;
    void setCheckboxEnabled(bool enabled) override;
    void setOkButtonEnabled(bool enabled) override;
    void setExplanation(const std::string& text) override;
    void setHint(const std::string& text) override;
    void closeWindow() override { close(); }

protected:
    void windowWillAppear() override { controller_.viewWillAppear(); }
    void escapePressed() override { controller_.cancel(); }

private:
    std::unique_ptr<Ui::ConfigurationWindow> ui_;
    ConfigurationViewController controller_;
};

} // namespace varnoth
