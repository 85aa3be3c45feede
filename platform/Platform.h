#pragma once

#include "platform/Accessibility.h"
#include "platform/Alerts.h"
#include "platform/Application.h"
#include "platform/BundleInfo.h"
#include "platform/Clock.h"
#include "platform/HostInfo.h"
#include "platform/MainQueue.h"
#include "platform/ManagedPreferences.h"
#include "platform/OutlookEnvironment.h"
#include "platform/ProcessLauncher.h"
#include "platform/StatusItem.h"
#include "platform/UserDefaults.h"
#include "platform/Worker.h"
#include "platform/Workspace.h"

#include <filesystem>
#include <optional>

namespace varnoth {

class ScriptHost;
class LoginItem;

// The ports through which the portable core reaches the platform. The desktop layer installs the real
// ones at start; tests install deterministic ones. Installed ports are not owned here.
class Platform {
public:
    struct Ports {
        MainQueue* mainQueue = nullptr;
        Clock* clock = nullptr;
        UserDefaults* userDefaults = nullptr;
        ManagedPreferences* managedPreferences = nullptr; // what the administrator forces
        HostInfo* hostInfo = nullptr;
        Accessibility* accessibility = nullptr;
        StatusItem* statusItem = nullptr;
        Alerts* alerts = nullptr;
        Workspace* workspace = nullptr;
        ProcessLauncher* processLauncher = nullptr;
        Application* application = nullptr;
        ScriptHost* scriptHost = nullptr; // runs the bundle's Outlook script
        LoginItem* loginItem = nullptr;   // the agent's own launch-at-login entry
        OutlookEnvironment* outlook = nullptr;
        Worker* worker = nullptr; // where the network waits run; none: on the calling thread
        BundleInfo bundle;
    };

    // Replaces every port; ports left empty fall back to the process's real ones where one exists
    // without a desktop (clock, host information, process launcher, script host).
    static void install(Ports ports);
    static const Ports& ports();

    static MainQueue& mainQueue();
    static Clock& clock();
    static UserDefaults& userDefaults();
    static ManagedPreferences* managedPreferences(); // none where nothing is managed
    static HostInfo& hostInfo();
    static Accessibility& accessibility();
    static StatusItem* statusItem(); // none in a headless run
    static Alerts& alerts();
    static Workspace& workspace();
    static ProcessLauncher& processLauncher();
    static Application& application();
    static ScriptHost& scriptHost();
    // The folder named by VARNOTH_STANDIN_SCRIPTS: its programs then play the bundle's script classes
    // (Outlook played by the stand-in) in place of the compiled scripts, and no accessibility grant is
    // awaited. A Mac's automated tests set it, so that none drives a real Outlook or waits on a prompt.
    static std::optional<std::filesystem::path> standInScripts();
    static LoginItem* loginItem(); // none where the platform offers no login items
    // Answers nothing but "unknown" unless a port is installed.
    static OutlookEnvironment& outlookEnvironment();
    static Worker& worker();
    static const BundleInfo& bundle();
};

} // namespace varnoth
