#pragma once

#include "platform/Alerts.h"

#include <functional>
#include <vector>

namespace varnoth {

// Records every modal alert; whileShown runs inside the alert, as a nested event loop would.
class RecordingAlerts final : public Alerts {
public:
    struct Alert {
        std::string title, message, button;
    };
    void showModal(const std::string& title, const std::string& message, const std::string& button) override {
        shown.push_back({title, message, button});
        if (whileShown) {
            whileShown();
        }
    }
    std::vector<Alert> shown;
    std::function<void()> whileShown;
};

} // namespace varnoth
