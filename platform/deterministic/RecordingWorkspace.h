#pragma once

#include "platform/Workspace.h"

#include <vector>

namespace varnoth {

// Records every file asked to open; opens says whether an application takes it.
class RecordingWorkspace final : public Workspace {
public:
    void openFile(const std::filesystem::path& path, std::function<void(bool)> done) override {
        opened.push_back(path);
        done(opens);
    }
    std::vector<std::filesystem::path> opened;
    bool opens = true;
};

} // namespace varnoth
