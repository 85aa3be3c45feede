#include "app/QtDesktop.h"

#include "platform/Platform.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>
#include <iostream>

namespace varnoth {

void QtDesktop::showModal(const std::string& title, const std::string& message, const std::string& button) {
    if (headless_) {
        std::cerr << title << ": " << message << std::endl;
        return;
    }
    makeAlert(title, message, button)->exec();
}

std::unique_ptr<QMessageBox> QtDesktop::makeAlert(const std::string& title, const std::string& message,
                                                  const std::string& button) {
    auto box = std::make_unique<QMessageBox>();
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(QString::fromStdString(title));
    box->setText(QString::fromStdString(title));
    box->setInformativeText(QString::fromStdString(message));
    box->addButton(QString::fromStdString(button), QMessageBox::AcceptRole);
    return box;
}

bool QtDesktop::openFile(const std::filesystem::path& path) {
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path.string())));
}

void QtDesktop::activate() {
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible()) {
            window->raise();
            window->activateWindow();
        }
    }
}

void QtDesktop::showAbout() {
    const BundleInfo& bundle = Platform::bundle();
    QMessageBox::about(nullptr, QString::fromStdString("About " + bundle.displayName),
                       QString::fromStdString("<b>" + bundle.displayName + "</b><br>Version " +
                                              bundle.shortVersion + " (" + bundle.version +
                                              ")<br><br>Copyright \u00A9 2026 Varnoth"));
}

void QtDesktop::terminate() {
    QCoreApplication::quit();
}

bool QtDesktop::isTrusted(bool prompt) {
    (void)prompt;
    // Only macOS guards GUI scripting behind the accessibility permission.
    return true;
}

Accessibility::Token QtDesktop::addObserver(Observer observer) {
    (void)observer; // a trusted process never waits for the notification
    return 0;
}

void QtDesktop::removeObserver(Token token) {
    (void)token;
}

} // namespace varnoth
