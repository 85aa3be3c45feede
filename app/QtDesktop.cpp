#include "app/QtDesktop.h"

#include "app/WindowFrame.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QProcess>
#include <QUrl>
#include <iostream>
#include <memory>
#include <utility>

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
    box->setTextFormat(Qt::PlainText); // an address in the message is never markup
    box->setWindowTitle(QString::fromStdString(title));
#ifdef Q_OS_MACOS
    // A Mac's alert has no title bar: the title is its bold first line, the message below it.
    box->setText(QString::fromStdString(title));
    box->setInformativeText(QString::fromStdString(message));
#else
    // Elsewhere the title bar carries the title, so the text says only what happened.
    box->setText(QString::fromStdString(message));
#endif
    box->addButton(QString::fromStdString(button), QMessageBox::AcceptRole);
    WindowFrame::fit(*box);
    return box;
}

std::unique_ptr<QMessageBox> QtDesktop::makeAbout() {
    const BundleInfo& bundle = Platform::bundle();
    auto box = std::make_unique<QMessageBox>();
    box->setWindowTitle(QString::fromStdString("About " + bundle.displayName));
    if (const QIcon icon = QApplication::windowIcon(); !icon.isNull()) {
        box->setIconPixmap(icon.pixmap(64));
    }
    box->setTextFormat(Qt::RichText);
    // The version as the log's banner, --version and the deployment log give it.
    box->setText(QString::fromStdString("<b>" + bundle.displayName + "</b><br>Version " +
                                        bundle.shortVersion + "." + bundle.version +
                                        "<br><br>Copyright \u00A9 2026 Varnoth"));
    box->addButton(QMessageBox::Ok);
    WindowFrame::fit(*box);
    return box;
}

void QtDesktop::openFile(const std::filesystem::path& path, std::function<void(bool)> done) {
    const QString file = QString::fromStdString(path.string());
#ifdef Q_OS_MACOS
    // Launch Services answers at once whether an application takes the file.
    done(QDesktopServices::openUrl(QUrl::fromLocalFile(file)));
#else
    // xdg-open tells through its exit status whether an application took the file (Qt's own call only
    // tells that xdg-open started). Where it falls back to running the application itself it ends with
    // it, so its answer is awaited without blocking.
    auto* opener = new QProcess(QCoreApplication::instance());
    opener->setStandardOutputFile(QProcess::nullDevice());
    opener->setStandardErrorFile(QProcess::nullDevice());
    auto answer = std::make_shared<std::function<void(bool)>>(std::move(done));
    const auto finish = [opener, answer](bool opened) {
        if (*answer) {
            std::exchange(*answer, nullptr)(opened);
        }
        opener->deleteLater();
    };
    QObject::connect(opener, &QProcess::finished, opener, [finish](int code, QProcess::ExitStatus status) {
        finish(status == QProcess::NormalExit && code == 0);
    });
    QObject::connect(opener, &QProcess::errorOccurred, opener, [finish](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            finish(false);
        }
    });
    opener->start(QStringLiteral("xdg-open"), {file});
#endif
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
#ifdef Q_OS_MACOS
    // As the Mac's own About panel: a window beside the others, not a modal one.
    QMessageBox* box = makeAbout().release();
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
#else
    makeAbout()->exec();
#endif
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
