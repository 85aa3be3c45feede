#pragma once

#include "platform/Application.h"
#include "tests/support/FakeAccessibility.h"
#include "tests/support/FakeAlerts.h"
#include "tests/support/FakeHostInfo.h"
#include "tests/support/FakeStatusItem.h"
#include "tests/support/FakeWorkspace.h"
#include "tests/support/ManualMainQueue.h"
#include "tests/support/MemoryUserDefaults.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnoth::test {

// Records what the agent asks of the running application.
class FakeApplication final : public Application {
public:
    void activate() override { ++activations; }
    void showAbout() override { ++aboutPanels; }
    void terminate() override { ++terminations; }
    int activations = 0, aboutPanels = 0, terminations = 0;
};

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
    std::filesystem::path systemConfigFolder() const;
    std::filesystem::path userConfigFolder() const;
    static void writeFile(const std::filesystem::path& path, const std::string& content);
    // Sets (or, with nullopt, removes) an environment variable until the end of the test.
    void setEnvironment(const char* name, const std::optional<std::string>& value);

    ManualMainQueue queue;
    MemoryUserDefaults defaults;
    FakeHostInfo host;
    FakeAccessibility accessibility;
    FakeStatusItem statusItem;
    FakeAlerts alerts;
    FakeWorkspace workspace;
    FakeApplication application;

private:
    std::filesystem::path root_;
    std::map<std::string, std::optional<std::string>> savedEnvironment_;
};

} // namespace varnoth::test
