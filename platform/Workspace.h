#pragma once

#include <filesystem>

namespace varnoth {

// The desktop's shared services for files.
class Workspace {
public:
    virtual ~Workspace() = default;
    // Opens the file in the user's default application for it; true when the request was accepted.
    virtual bool openFile(const std::filesystem::path& path) = 0;
};

} // namespace varnoth
