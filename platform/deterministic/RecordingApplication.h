#pragma once

#include "platform/Application.h"

namespace varnoth {

// Records what the agent asks of the running application.
class RecordingApplication final : public Application {
public:
    void activate() override { ++activations; }
    void showAbout() override { ++aboutPanels; }
    void terminate() override { ++terminations; }
    int activations = 0, aboutPanels = 0, terminations = 0;
};

} // namespace varnoth
