// Shows both dialog windows in the states a user meets, the open tray menu (also on a dark panel), the
// failure alert and About, and saves each as a PNG image, for the documentation. Usage: screenshots <output
// folder>; run it under a display (xvfb-run) to get the real platform's rendering. Nothing outside a
// temporary folder is read or written but the images.

#include "BuildInfo.h"
#include "agent/AppDelegate.h"
#include "app/ApplyWindow.h"
#include "app/ConfigurationWindow.h"
#include "app/QtDesktop.h"
#include "app/QtStatusItem.h"
#include "base/Logger.h"
#include "config/Config.h"
#include "platform/Platform.h"
#include "platform/deterministic/MemoryManagedPreferences.h"
#include "platform/deterministic/MemoryUserDefaults.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QTest>
#include <algorithm>
#include <filesystem>
#include <iostream>

namespace {

using namespace varnoth;

bool save(const QPixmap& image, const std::filesystem::path& path) {
    if (!image.save(QString::fromStdString(path.string()), "PNG")) {
        std::cerr << "screenshots: cannot write " << path << "\n";
        return false;
    }
    std::cout << path.string() << "\n";
    return true;
}

bool save(QWidget& window, const std::filesystem::path& path) {
    QApplication::processEvents();
    QTest::qWait(100);
    return save(window.grab(), path);
}

// A dark panel holding the agent's idle and progress icons as the tray draws them there, with the open
// menu in the dark theme below it.
QPixmap darkPanel(QtStatusItem& tray) {
    const QColor panel(40, 40, 44);
    QApplication::setPalette(QPalette(panel));
    tray.menu()->popup(QPoint(40, 40));
    QApplication::processEvents();
    QTest::qWait(100);
    const QPixmap menu = tray.menu()->grab();
    tray.menu()->hide();
    QPixmap image(std::max(menu.width(), 120), 30 + menu.height());
    image.fill(panel);
    QPainter painter(&image);
    int x = image.width() - 30;
    for (const char* name : {"menu_icon_progress", "menu_icon"}) {
        tray.setImage(name);
        tray.trayIcon().icon().paint(&painter, QRect(x, 4, 22, 22));
        x -= 30;
    }
    painter.drawPixmap(0, 30, menu);
    return image;
}

void answer(ApplyWindow& window, SignatureAction newAction, SignatureAction replyAction) {
    SignatureDescriptor descriptor;
    descriptor.defaultSignatureAction = newAction;
    descriptor.replySignatureAction = replyAction;
    window.controller().signature = descriptor;
    window.controller().updateMessage();
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: screenshots <output folder>\n";
        return 2;
    }
    const std::filesystem::path output = argv[1];
    std::filesystem::create_directories(output);

    char pattern[] = "/tmp/varnoth-screenshots-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    const std::filesystem::path scratch = pattern;
    Logger::setLogFilePath(scratch / "agent.log");

    QApplication application(argc, argv);
    MemoryUserDefaults defaults;
    MemoryManagedPreferences managed;
    QtStatusItem tray(VARNOTH_TEST_RESOURCES);
    QtDesktop desktop(false);
    Platform::Ports ports;
    ports.userDefaults = &defaults;
    ports.managedPreferences = &managed;
    ports.statusItem = &tray;
    ports.application = &desktop;
    ports.bundle.name = Config::baseName;
    ports.bundle.displayName = build::displayName;
    ports.bundle.shortVersion = build::shortVersion;
    ports.bundle.version = build::bundleVersion;
    Platform::install(ports);
    // No configuration file: every setting at its default.
    Config::setShared(
        std::make_unique<Config>(Config::Locations{scratch / "system", scratch / "user", Config::baseName}));

    bool saved = true;
    {
        ApplyWindow window;
        answer(window, SignatureAction::dontchange, SignatureAction::change);
        window.center();
        window.show();
        saved &= save(window.dialog(), output / "apply-automatic.png");
        window.close();
        answer(window, SignatureAction::dontchange, SignatureAction::dontchange);
        window.show();
        saved &= save(window.dialog(), output / "apply-not-changed.png");
        window.close();
    }
    {
        ConfigurationWindow window;
        window.center();
        window.show();
        saved &= save(window.dialog(), output / "configuration-default-account.png");
        window.close();
        defaults.setString("UserEmailAddress", "jane.doe@example.com");
        window.show();
        auto* input = window.dialog().findChild<QLineEdit*>("emailInput");
        input->setFocus();
        input->end(false);
        QTest::keyClicks(input, ".uk");
        saved &= save(window.dialog(), output / "configuration-fixed-address.png");
        window.close();
    }
    {
        // The address a configuration profile forces; managed values are taken as the configuration is read.
        managed.values["UserEmailAddress"] = {PreferenceValue::Type::text, "jane.doe@example.com"};
        Config::setShared(std::make_unique<Config>(
            Config::Locations{scratch / "system", scratch / "user", Config::baseName}));
        ConfigurationWindow window;
        window.center();
        window.show();
        saved &= save(window.dialog(), output / "configuration-set-by-organisation.png");
        window.close();
    }

    {
        AppDelegate delegate;
        delegate.statusMenu().constructMenu();
        tray.menu()->popup(QPoint(40, 40));
        saved &= save(*tray.menu(), output / "tray-menu.png");
        tray.menu()->hide();
        auto alert = QtDesktop::makeAlert("Update signatures failed", "Fetching signature failed", "OK");
        alert->show();
        saved &= save(*alert, output / "failure-alert.png");
        alert->hide();
        auto about = QtDesktop::makeAbout();
        about->show();
        saved &= save(*about, output / "about.png");
        about->hide();
        saved &= save(darkPanel(tray), output / "tray-dark-panel.png");
    }

    Config::setShared(nullptr);
    Platform::install({});
    std::error_code ignored;
    std::filesystem::remove_all(scratch, ignored);
    return saved ? 0 : 1;
}
