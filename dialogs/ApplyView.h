#pragma once

#include <string>

namespace varnoth {

// The controls of the apply-signatures dialog, as its controller sees them: the message and the button
// that lets the agent configure the default signatures itself.
class ApplyView {
public:
    virtual ~ApplyView() = default;

    virtual void setMessage(const std::string& text) = 0;
    virtual void setConfigureButtonHidden(bool hidden) = 0;

    virtual void closeWindow() = 0;
};

} // namespace varnoth
