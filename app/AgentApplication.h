#pragma once

#include "platform/BundleInfo.h"

#include <string>
#include <vector>

namespace varnoth {

// The agent's process: reads its command line, installs the Qt ports and runs the event loop.
class AgentApplication {
public:
    static int main(int argc, char** argv);

    static BundleInfo bundleInfo(const std::string& executablePath);
    static std::string usage();
};

} // namespace varnoth
