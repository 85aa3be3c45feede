#include "app/AgentApplication.h"

#include "BuildInfo.h"
#include "agent/AppDelegate.h"
#include "app/ApplyWindow.h"
#include "app/ConfigurationWindow.h"
#include "app/QSettingsUserDefaults.h"
#include "app/QtDesktop.h"
#include "app/QtMainQueue.h"
#include "app/QtStatusItem.h"
#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "config/ConfigReport.h"
#include "config/ManagedPreferencesFile.h"
#include "platform/Platform.h"
#include "platform/Termination.h"
#include "platform/posix/InstanceLock.h"
#include "platform/posix/PosixHostInfo.h"
#include "platform/posix/PosixProcessLauncher.h"
#include "platform/posix/SystemClock.h"
#include "platform/posix/ThreadWorker.h"
#include "update/Diagnosis.h"
#include "update/DryRun.h"

#ifdef __APPLE__
#include "launchd/LaunchdLoginItem.h"
#include "platform/mac/MacAccessibility.h"
#include "platform/mac/MacBundle.h"
#include "platform/mac/MacHostInfo.h"
#include "platform/mac/MacManagedPreferences.h"
#include "platform/mac/MacOutlookEnvironment.h"
#include "platform/mac/MacUserDefaults.h"
#else
#include "platform/linux/XdgAutostartLoginItem.h"
#endif

#include <QApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <unistd.h>

namespace varnoth {

namespace {

int signalPipe[2] = {-1, -1};

void forwardSignal(int) {
    // The flag makes a blocking connect, read, directory call or script wait give up within 100 ms, so
    // the event loop gets to the pipe promptly.
    Termination::request();
    const char byte = 1;
    [[maybe_unused]] auto ignored = ::write(signalPipe[1], &byte, 1);
}

// SIGINT and SIGTERM end the agent through the event loop, so termination still logs "Exiting".
void quitOnSignals(std::function<void()> quit) {
    if (::pipe(signalPipe) != 0) {
        return;
    }
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, std::move(quit));
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// The running executable itself: argv[0] holds only a name when the agent was started through PATH,
// and its resources are found relative to the real file.
std::string executablePath(const char* argument) {
#ifdef __linux__
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error && !path.empty()) {
        return path.string();
    }
#endif
    return argument;
}

// The running application's bundle. On macOS the main bundle's own values, resources and executable (the
// program a login item must start); elsewhere the build's values with the executable found above.
BundleInfo runningBundle(const char* argument) {
#ifdef __APPLE__
    if (const auto bundle = MacBundle::Create()) {
        return bundle->info();
    }
#endif
    return AgentApplication::bundleInfo(executablePath(argument));
}

// The user's preferences: on macOS the defaults of the bundle identifier's domain, which `defaults read`
// and the administrator's managed preferences share; elsewhere QSettings.
std::unique_ptr<UserDefaults> userDefaults(const BundleInfo& bundle) {
#ifdef __APPLE__
    if (auto defaults = MacUserDefaults::Create()) {
        return defaults;
    }
#endif
    return std::make_unique<QSettingsUserDefaults>(bundle.identifier);
}

// What the administrator forces: a configuration profile's managed preferences on macOS, elsewhere the
// property list in the system configuration folder.
std::unique_ptr<ManagedPreferences> managedPreferences() {
#ifdef __APPLE__
    if (auto managed = MacManagedPreferences::Create()) {
        return managed;
    }
#endif
    return std::make_unique<ManagedPreferencesFile>();
}

// --print-config: the configuration as this user's agent would read it, without a display and without
// writing the log file. Exit status 1 when no file was found or read, so deployment checks can test it.
int printConfiguration(const BundleInfo& bundle) {
    const auto defaults = userDefaults(bundle);
    const auto managed = managedPreferences();
    Platform::Ports ports;
    ports.userDefaults = defaults.get();
    ports.managedPreferences = managed.get();
    ports.bundle = bundle;
    Platform::install(ports);
    const ConfigReport report(Config::platformLocations());
    std::cout << report.text() << std::flush;
    Platform::install({});
    return report.fileRead() ? 0 : 1;
}

// Two tray agents of one user would show two icons and run two timers into one log. The lock file sits
// beside the log and is held for the life of the process; only a vanished process leaves a stale one,
// never a lock's age, however long the agent runs.

} // namespace

std::string AgentApplication::usage() {
    return std::string("Usage: varnoth-agent [option]\n\n") + build::displayName +
           " keeps your Outlook signatures in line with the company's signature server.\n"
           "Without an option it runs as a menu-bar (tray) agent.\n\n"
           "Options:\n"
           "  --once        run one update as the timer does, then exit (0 when it succeeded)\n"
           "  --dry-run [--email ADDRESS] [--answer FILE]\n"
           "                print what an update would change, one line per change, writing nothing;\n"
           "                exit 0 when nothing would change, 3 when something would, 1 on failure\n"
           "  --diagnose    check the configuration, the signature server, Outlook and its\n"
           "                permissions, the login item and the last run; exit 1 when a check failed\n"
           "  --print-config\n"
           "                show which configuration file is used and the effective settings, then\n"
           "                exit (1 when no configuration file was found or read)\n"
           "  --help        show this help\n"
           "  --version     show the version\n";
}

BundleInfo AgentApplication::bundleInfo(const std::string& executablePath) {
    BundleInfo bundle;
    bundle.name = build::bundleName;
    bundle.displayName = build::displayName;
    bundle.identifier = build::bundleIdentifier;
    bundle.shortVersion = build::shortVersion;
    bundle.version = build::bundleVersion;
    std::error_code error;
    bundle.executablePath = std::filesystem::canonical(executablePath, error);
    if (error) {
        bundle.executablePath = executablePath;
    }
    // Resources sit beside the executable as in an application bundle: installed under share/,
    // or, for an agent run from its build tree only, the source tree's folder.
    const auto folder = bundle.executablePath.parent_path();
    std::vector<std::filesystem::path> candidates{folder / "../Resources",
                                                  folder / "../share/varnoth-agent/resources"};
    if (PlatformPaths::runningFromBuildTree()) {
        candidates.emplace_back(VARNOTH_SOURCE_RESOURCES);
    }
    for (const auto& candidate : candidates) {
        if (std::filesystem::is_directory(candidate, error)) {
            bundle.resourcesFolder = std::filesystem::weakly_canonical(candidate, error);
            break;
        }
    }
    return bundle;
}

int AgentApplication::main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    bool once = false;
    enum class Check { none, dryRun, diagnose } check = Check::none;
    DryRun::Options dryRunOptions;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if ((argument == "--email" || argument == "--answer") && check == Check::dryRun &&
            index + 1 < arguments.size()) {
            if (argument == "--email") {
                dryRunOptions.email = arguments[++index];
            } else {
                dryRunOptions.answerFile = arguments[++index];
            }
            continue;
        }
        if (argument == "--dry-run" || argument == "--diagnose") {
            check = argument == "--dry-run" ? Check::dryRun : Check::diagnose;
            once = true; // headless, and beside a running tray agent
            continue;
        }
        if (argument == "--help" || argument == "-h") {
            std::cout << usage();
            return 0;
        }
        if (argument == "--version") {
            std::cout << build::displayName << " " << build::shortVersion << "." << build::bundleVersion
                      << "\n";
            return 0;
        }
        if (argument == "--print-config") {
            return printConfiguration(runningBundle(argv[0]));
        }
        if (argument == "--once") {
            once = true;
        } else {
            std::cerr << "varnoth-agent: unknown option " << argument << "\n\n" << usage();
            return 2;
        }
    }

    if (once) {
        // A single run shows no window, so it needs no display, even when DISPLAY names one that is gone.
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
    QApplication qt(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    const BundleInfo bundle = runningBundle(argv[0]);
    // One tray agent per user; a single run is not blocked by it.
    std::unique_ptr<InstanceLock> instanceLock;
    if (!once) {
        std::error_code ignored;
        std::filesystem::create_directories(Logger::logFilePath().parent_path(), ignored);
        instanceLock = std::make_unique<InstanceLock>(Logger::logFilePath().string() + ".lock");
        if (instanceLock->state() == InstanceLock::State::heldByAnother) {
            std::cerr << "Another instance of the agent is already running\n";
            return 0;
        }
    }
    QtMainQueue mainQueue;
    SystemClock clock;
    // Made after the main queue it posts to, and so gone before it.
    ThreadWorker worker(mainQueue);
    const auto defaults = userDefaults(bundle);
    const auto managed = managedPreferences();
    PosixHostInfo host;
    PosixProcessLauncher launcher;
    QtDesktop desktop(once);
    std::unique_ptr<QtStatusItem> statusItem;
    if (!once) {
        statusItem = std::make_unique<QtStatusItem>(bundle.resourcesFolder);
    }

    Platform::Ports ports;
    ports.mainQueue = &mainQueue;
    ports.clock = &clock;
    ports.userDefaults = defaults.get();
    ports.managedPreferences = managed.get();
    ports.hostInfo = &host;
    ports.accessibility = &desktop;
#ifdef __APPLE__
    // The system's facts and its accessibility permission (which Outlook's GUI scripting needs).
    const auto macHost = MacHostInfo::Create();
    // The stand-in's GUI scripting needs no grant, so a Mac's tests never wait for one.
    const auto macAccessibility = Platform::standInScripts() ? nullptr : MacAccessibility::Create();
    if (macHost) {
        ports.hostInfo = macHost.get();
    }
    if (macAccessibility) {
        ports.accessibility = macAccessibility.get();
    }
    // What the system knows of Outlook, unless the stand-in plays it.
    MacOutlookEnvironment outlookEnvironment;
    if (!Platform::standInScripts()) {
        ports.outlook = &outlookEnvironment;
    }
#endif
    ports.statusItem = statusItem.get();
    ports.alerts = &desktop;
    ports.workspace = &desktop;
    ports.processLauncher = &launcher;
    ports.application = &desktop;
    ports.bundle = bundle;
#ifdef __APPLE__
    LaunchdLoginItem loginItem;
#else
    XdgAutostartLoginItem loginItem;
#endif
    ports.loginItem = &loginItem;
    ports.worker = &worker;
    Platform::install(ports);

    // The dialogs are made once and reused; a single headless run has none.
    std::unique_ptr<ApplyWindow> applyWindow;
    std::unique_ptr<ConfigurationWindow> configWindow;
    AppDelegate::Windows windows;
    if (!once) {
        applyWindow = std::make_unique<ApplyWindow>();
        configWindow = std::make_unique<ConfigurationWindow>();
        windows = {applyWindow.get(), configWindow.get(), &applyWindow->controller()};
    }
    AppDelegate delegate(windows);
    // A single run that a signal cuts short did not succeed; the tray agent ends normally.
    quitOnSignals([once, &delegate] {
        if (once) {
            delegate.applicationWillTerminate();
        }
        QCoreApplication::exit(once ? 1 : 0);
    });
    std::unique_ptr<DryRun> dryRun;
    std::unique_ptr<Diagnosis> diagnosis;
    const auto quitWith = [&mainQueue](int status) {
        mainQueue.post([status] { QCoreApplication::exit(status); });
    };
    if (check == Check::dryRun) {
        dryRun = std::make_unique<DryRun>(dryRunOptions, std::cout);
        mainQueue.post([&] { dryRun->start(quitWith); });
    } else if (check == Check::diagnose) {
        diagnosis = std::make_unique<Diagnosis>(std::cout);
        mainQueue.post([&] { diagnosis->start(quitWith); });
    } else if (once) {
        // The deployment log's send is queued when the run ends; quitting behind it lets it go out.
        delegate.setUpdateFinishedHandler([&mainQueue](bool succeeded) {
            mainQueue.post([succeeded] { QCoreApplication::exit(succeeded ? 0 : 1); });
        });
        mainQueue.post([&delegate] { delegate.runOnce(); });
    } else {
        QObject::connect(&qt, &QCoreApplication::aboutToQuit,
                         [&delegate] { delegate.applicationWillTerminate(); });
        mainQueue.post([&delegate] { delegate.applicationDidFinishLaunching(); });
        if (instanceLock->state() == InstanceLock::State::tookOver) { // said after the start-up lines
            mainQueue.post([] {
                Logger::log("Took over the lock file of an agent that no longer runs: " +
                            Logger::logFilePath().string() + ".lock");
            });
        }
    }
    const int status = QApplication::exec();
    // A network wait still under way gives up now; the worker abandons one that cannot.
    Termination::request();
    Platform::install({});
    return status;
}

} // namespace varnoth

int main(int argc, char** argv) {
    return varnoth::AgentApplication::main(argc, argv);
}
