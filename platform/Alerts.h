#pragma once

#include <string>

namespace varnoth {

// Modal alerts; showModal returns once the user has dismissed the alert.
class Alerts {
public:
    virtual ~Alerts() = default;
    virtual void showModal(const std::string& title, const std::string& message,
                           const std::string& button) = 0;
};

} // namespace varnoth
