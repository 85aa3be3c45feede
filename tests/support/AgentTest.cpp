#include "tests/support/AgentTest.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <ctime>
#include <sstream>

namespace varnoth::test {

void AgentTest::SetUp() {
    root_ = makeTemporaryFolder("varnoth-test");
    for (const auto& [name, folder] : {std::pair{"HOME", "home"},
                                       {"XDG_STATE_HOME", "home/.local/state"},
                                       {"XDG_CONFIG_HOME", "home/.config"},
                                       {"XDG_DATA_HOME", "home/.local/share"},
                                       {"XDG_CONFIG_DIRS", "etc/xdg"},
                                       {"VARNOTH_SYSTEM_CONFIG_DIR", "etc/Varnoth"}}) {
        setEnvironment(name, (root_ / folder).string());
    }
    std::filesystem::create_directories(root_ / "home/.local/state");

    Logger::setLogFilePath(root_ / "home/.local/state/Varnoth Brelvane Agent.log");
    Logger::captureEnabled = false;
    Logger::capturedLog.clear();

    Platform::Ports ports;
    ports.mainQueue = &queue;
    ports.clock = &queue;
    ports.userDefaults = &defaults;
    ports.managedPreferences = &managed;
    ports.hostInfo = &host;
    ports.accessibility = &accessibility;
    ports.statusItem = &statusItem;
    ports.alerts = &alerts;
    ports.workspace = &workspace;
    ports.application = &application;
    ports.bundle.name = ports.bundle.displayName = "Varnoth Brelvane Agent";
    ports.bundle.identifier = "com.varnoth.brelvane-agent";
    ports.bundle.shortVersion = "1.0.0";
    ports.bundle.version = "1";
    Platform::install(ports);
    Config::setShared(nullptr);
}

void AgentTest::TearDown() {
    Config::setShared(nullptr);
    Platform::install({});
    Logger::captureEnabled = false;
    Logger::capturedLog.clear();
    std::error_code ignored;
    std::filesystem::permissions(root_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(root_, ignored);
    for (const auto& [name, value] : savedEnvironment_) {
        value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    savedEnvironment_.clear();
    tzset(); // a test may have set TZ
}

void AgentTest::setEnvironment(const char* name, const std::optional<std::string>& value) {
    if (!savedEnvironment_.count(name)) {
        const char* old = std::getenv(name);
        savedEnvironment_[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
    }
    value ? setenv(name, value->c_str(), 1) : unsetenv(name);
}

std::string AgentTest::logText() const {
    return readWholeFile(Logger::logFilePath());
}

std::vector<std::string> AgentTest::logLines() const {
    std::vector<std::string> lines;
    std::istringstream in(logText());
    for (std::string line; std::getline(in, line);) {
        // A timestamped line starts with 19 characters and two blanks; continuation lines do not.
        const bool stamped =
            line.size() >= 21 && line[4] == '-' && line[10] == ' ' && line.compare(19, 2, "  ") == 0;
        lines.push_back(stamped ? line.substr(21) : line);
    }
    return lines;
}

void AgentTest::clearLog() const {
    std::error_code ignored;
    std::filesystem::remove(Logger::logFilePath(), ignored);
}

} // namespace varnoth::test
