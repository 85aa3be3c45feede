#pragma once

#include "platform/Accessibility.h"
#include "platform/Alerts.h"
#include "platform/Application.h"
#include "platform/Workspace.h"

#include <QMessageBox>
#include <memory>

namespace varnoth {

// The desktop services of a Qt session: alerts, the workspace, the application, and the
// accessibility permission of a desktop that does not guard it (always trusted). On macOS the agent
// installs MacAccessibility instead.
class QtDesktop final : public Alerts, public Workspace, public Application, public Accessibility {
public:
    // headless: alerts go to standard error instead of a window.
    explicit QtDesktop(bool headless) : headless_(headless) {}

    void showModal(const std::string& title, const std::string& message, const std::string& button) override;
    // The failure alert's window, as showModal shows it.
    static std::unique_ptr<QMessageBox> makeAlert(const std::string& title, const std::string& message,
                                                  const std::string& button);
    // The About window, as showAbout shows it.
    static std::unique_ptr<QMessageBox> makeAbout();
    void openFile(const std::filesystem::path& path, std::function<void(bool)> done) override;
    void activate() override;
    void showAbout() override;
    void terminate() override;
    bool isTrusted(bool prompt) override;
    Token addObserver(Observer observer) override;
    void removeObserver(Token token) override;

private:
    bool headless_;
};

} // namespace varnoth
