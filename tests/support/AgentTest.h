#pragma once

#include "platform/deterministic/FixedHostInfo.h"
#include "platform/deterministic/ManualAccessibility.h"
#include "platform/deterministic/ManualMainQueue.h"
#include "platform/deterministic/MemoryManagedPreferences.h"
#include "platform/deterministic/MemoryUserDefaults.h"
#include "platform/deterministic/RecordingAlerts.h"
#include "platform/deterministic/RecordingApplication.h"
#include "platform/deterministic/RecordingStatusItem.h"
#include "platform/deterministic/RecordingWorkspace.h"
#include "tests/support/ServerProcess.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnoth::test {

// Base of the tests that run agent code: a temporary HOME with its XDG folders and system configuration
// folder, the log file inside it, deterministic ports, and a configuration read anew per test.
class AgentTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The messages of the log file, one per physical line, without their timestamps.
    std::vector<std::string> logLines() const;
    std::string logText() const;
    void clearLog() const;

    std::filesystem::path root() const { return root_; }
    // The folder where the administrator's configuration files go.
    std::filesystem::path systemConfigFolder() const { return root_ / "etc/Varnoth/Varnoth Brelvane Agent"; }
    std::filesystem::path userConfigFolder() const {
        return root_ / "home/.config/Varnoth/Varnoth Brelvane Agent";
    }
    static void writeFile(const std::filesystem::path& path, const std::string& content) {
        writeWholeFile(path, content);
    }
    // Sets (or, with nullopt, removes) an environment variable until the end of the test.
    void setEnvironment(const char* name, const std::optional<std::string>& value);

    ManualMainQueue queue;
    MemoryUserDefaults defaults;
    MemoryManagedPreferences managed;
    FixedHostInfo host;
    ManualAccessibility accessibility;
    RecordingStatusItem statusItem;
    RecordingAlerts alerts;
    RecordingWorkspace workspace;
    RecordingApplication application;

private:
    std::filesystem::path root_;
    std::map<std::string, std::optional<std::string>> savedEnvironment_;
};

} // namespace varnoth::test
