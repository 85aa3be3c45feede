#pragma once

#include "platform/BundleInfo.h"

#include <optional>

namespace varnoth {

// The main bundle as the running application sees it: its information values, its resources folder and
// its executable, the path that launchd must start at login. The executable comes from the bundle and
// never from argv[0], which holds only a name when the program was started by name. Reads the bundle
// afresh at each call; callable from any thread.
class MacBundle {
public:
    // Nothing when the process has no main bundle.
    static std::optional<MacBundle> Create();

    BundleInfo info() const;

private:
    MacBundle() = default;
};

} // namespace varnoth
