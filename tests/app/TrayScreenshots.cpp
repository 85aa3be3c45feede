// Renders the open tray menu and the failure alert into PNG files, for the documentation.
// Usage: tray_screenshots <output folder>; run it under a display (xvfb-run) for the real rendering.
// Nothing is read or written outside a temporary folder but the images.

#include "app/QtDesktop.h"
#include "app/QtStatusItem.h"
#include "core/AppDelegate.h"
#include "core/Logger.h"
#include "platform/Platform.h"
#include "tests/support/MemoryUserDefaults.h"

#include <QApplication>
#include <QMenu>
#include <QTest>
#include <filesystem>
#include <iostream>

namespace {

bool save(QWidget& widget, const std::filesystem::path& path) {
    QApplication::processEvents();
    QTest::qWait(150);
    if (!widget.grab().save(QString::fromStdString(path.string()), "PNG")) {
        std::cerr << "tray_screenshots: cannot write " << path << "\n";
        return false;
    }
    std::cout << path.string() << "\n";
    return true;
}

} // namespace

int main(int argc, char** argv) {
    using namespace varnoth;
    if (argc != 2) {
        std::cerr << "Usage: tray_screenshots <output folder>\n";
        return 2;
    }
    const std::filesystem::path output = argv[1];
    std::filesystem::create_directories(output);
    char pattern[] = "/tmp/varnoth-screenshots-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    const std::filesystem::path scratch = pattern;
    setenv("HOME", scratch.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (scratch / "config").c_str(), 1);
    setenv("VARNOTH_SYSTEM_CONFIG_DIR", (scratch / "etc").c_str(), 1);
    Logger::setLogFilePath(scratch / "agent.log");

    QApplication application(argc, argv);
    test::MemoryUserDefaults defaults;
    QtStatusItem tray(VARNOTH_TEST_RESOURCES);
    QtDesktop desktop(false);
    Platform::Ports ports;
    ports.userDefaults = &defaults;
    ports.statusItem = &tray;
    ports.application = &desktop;
    ports.bundle.name = "Varnoth Brelvane Agent";
    Platform::install(ports);

    AppDelegate delegate;
    delegate.constructMenu();
    tray.menu()->popup(QPoint(40, 40));
    bool ok = save(*tray.menu(), output / "tray-menu.png");
    tray.menu()->hide();

    auto alert = QtDesktop::makeAlert("Update signatures failed", "Fetching signature failed", "OK");
    alert->show();
    ok = save(*alert, output / "failure-alert.png") && ok;
    alert->hide();

    Platform::install({});
    std::filesystem::remove_all(scratch);
    return ok ? 0 : 1;
}
