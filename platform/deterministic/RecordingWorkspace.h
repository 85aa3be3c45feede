#pragma once

#include "platform/Workspace.h"

#include <vector>

namespace varnoth {

class RecordingWorkspace final : public Workspace {
public:
    bool openFile(const std::filesystem::path& path) override {
        opened.push_back(path);
        return true;
    }
    std::vector<std::filesystem::path> opened;
};

} // namespace varnoth
