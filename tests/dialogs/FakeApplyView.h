#pragma once

#include "dialogs/ApplyView.h"

#include <optional>

namespace varnoth::test {

// The apply dialog's controls as plain state; the button's visibility stays unknown until it is set.
class FakeApplyView final : public ApplyView {
public:
    void setMessage(const std::string& text) override { message = text; }
    void setConfigureButtonHidden(bool hidden) override { configureButtonHidden = hidden; }
    void closeWindow() override { ++closes; }

    std::string message;
    std::optional<bool> configureButtonHidden;
    int closes = 0;
};

} // namespace varnoth::test
