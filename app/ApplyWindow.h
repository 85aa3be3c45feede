#pragma once

#include "app/DialogWindow.h"
#include "dialogs/ApplyView.h"
#include "dialogs/ApplyViewController.h"

#include <memory>

namespace Ui {
class ApplyWindow;
}

namespace varnoth {

// The apply-signatures window: the message and the buttons "Configure default signatures" and Close,
// laid out in ApplyWindow.ui and driven by the window's own ApplyViewController.
class ApplyWindow final : public DialogWindow, public ApplyView {
public:
    ApplyWindow();
    ~ApplyWindow() override;

    // The update run hands the answer to this controller and asks it to choose the message.
    ApplyViewController& controller() { return controller_; }

    void setMessage(const std::string& text) override;
    void setConfigureButtonHidden(bool hidden) override;
    void closeWindow() override { close(); }

protected:
    void windowWillAppear() override { controller_.viewWillAppear(); }
    void escapePressed() override { controller_.closeTapped(); }

private:
    std::unique_ptr<Ui::ApplyWindow> ui_;
    ApplyViewController controller_;
};

} // namespace varnoth
