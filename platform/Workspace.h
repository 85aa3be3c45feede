#pragma once

#include <filesystem>
#include <functional>

namespace varnoth {

// The desktop's shared services for files.
class Workspace {
public:
    virtual ~Workspace() = default;
    // Opens the file in the user's default application for it, then calls done on the main thread with
    // whether an application took it. Some desktops answer only when their opener has ended, so done may
    // come after openFile has returned.
    virtual void openFile(const std::filesystem::path& path, std::function<void(bool opened)> done) = 0;
};

} // namespace varnoth
