#include "platform/Platform.h"

#include "base/Logger.h"
#include "platform/posix/PosixHostInfo.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/ProcessScriptHost.h"
#include "platform/posix/SystemClock.h"

#ifdef __APPLE__
#include "platform/mac/AppleScriptObjCHost.h"
#endif

#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace varnoth {

namespace {

Platform::Ports& current() {
    static Platform::Ports ports;
    return ports;
}

// The one place that decides how the bundle's Outlook script runs: in-process through AppleScriptObjC on
// macOS; elsewhere, or when the stand-in is asked for, as a program that hands each message to the
// Outlook stand-in.
std::unique_ptr<ScriptHost> nativeScriptHost() {
    if (const auto folder = Platform::standInScripts()) {
        return std::make_unique<ProcessScriptHost>(ProcessScriptHost::defaultTimeLimit, *folder);
    }
#ifdef __APPLE__
    if (auto host = AppleScriptObjCHost::Create()) {
        return host;
    }
#endif
    return std::make_unique<ProcessScriptHost>();
}

template <typename Port> Port& required(Port* port, const char* name) {
    if (port == nullptr) {
        throw std::logic_error(std::string("platform port not installed: ") + name);
    }
    return *port;
}

} // namespace

void Platform::install(Ports ports) {
    static SystemClock systemClock;
    static PosixHostInfo posixHostInfo;
    static PosixProcessLauncher posixLauncher;
    if (ports.clock == nullptr) {
        ports.clock = &systemClock;
    }
    if (ports.hostInfo == nullptr) {
        ports.hostInfo = &posixHostInfo;
    }
    if (ports.processLauncher == nullptr) {
        ports.processLauncher = &posixLauncher;
    }
    current() = std::move(ports);
    Logger::timeSource = [] { return Platform::clock().now(); };
}

Worker& Platform::worker() {
    static Worker callingThread;
    return current().worker != nullptr ? *current().worker : callingThread;
}

const Platform::Ports& Platform::ports() {
    return current();
}

MainQueue& Platform::mainQueue() {
    return required(current().mainQueue, "main queue");
}

Clock& Platform::clock() {
    static SystemClock fallback;
    return current().clock != nullptr ? *current().clock : fallback;
}

UserDefaults& Platform::userDefaults() {
    return required(current().userDefaults, "user defaults");
}

ManagedPreferences* Platform::managedPreferences() {
    return current().managedPreferences;
}

HostInfo& Platform::hostInfo() {
    static PosixHostInfo fallback;
    return current().hostInfo != nullptr ? *current().hostInfo : fallback;
}

Accessibility& Platform::accessibility() {
    return required(current().accessibility, "accessibility");
}

StatusItem* Platform::statusItem() {
    return current().statusItem;
}

Alerts& Platform::alerts() {
    return required(current().alerts, "alerts");
}

Workspace& Platform::workspace() {
    return required(current().workspace, "workspace");
}

ProcessLauncher& Platform::processLauncher() {
    static PosixProcessLauncher fallback;
    return current().processLauncher != nullptr ? *current().processLauncher : fallback;
}

Application& Platform::application() {
    return required(current().application, "application");
}

ScriptHost& Platform::scriptHost() {
    // Without a bundle (no resources folder, no main bundle) it finds no script.
    static const std::unique_ptr<ScriptHost> fallback = nativeScriptHost();
    return current().scriptHost != nullptr ? *current().scriptHost : *fallback;
}

std::optional<std::filesystem::path> Platform::standInScripts() {
    const char* folder = std::getenv("VARNOTH_STANDIN_SCRIPTS");
    if (folder == nullptr || *folder == '\0') {
        return std::nullopt;
    }
    return std::filesystem::path(folder);
}

LoginItem* Platform::loginItem() {
    return current().loginItem;
}

OutlookEnvironment& Platform::outlookEnvironment() {
    static OutlookEnvironment unknown;
    return current().outlook != nullptr ? *current().outlook : unknown;
}

const BundleInfo& Platform::bundle() {
    return current().bundle;
}

} // namespace varnoth
