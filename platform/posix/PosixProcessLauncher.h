#pragma once

#include "platform/ProcessLauncher.h"

namespace varnoth {

// posix_spawn with pipes; the caller blocks in run() while the child runs.
class PosixProcessLauncher final : public ProcessLauncher {
public:
    Result run(const Request& request) override;
    bool launch(const std::filesystem::path& program, const std::vector<std::string>& arguments) override;
};

} // namespace varnoth
