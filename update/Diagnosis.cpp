#include "update/Diagnosis.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "config/ConfigReport.h"
#include "outlook/OutlookHandler.h"
#include "platform/LoginItem.h"
#include "platform/Platform.h"
#include "server/NetworkService.h"
#include "update/LastRun.h"

#include <ostream>
#include <utility>

namespace varnoth {

namespace {

using Status = Diagnosis::Status;
using Blocker = OutlookState::Blocker;

} // namespace

Diagnosis::Diagnosis(std::ostream& out) : out_(out) {}

Diagnosis::~Diagnosis() = default;

std::string Diagnosis::line(const Check& check) {
    const char* status = check.status == Status::ok        ? "ok"
                         : check.status == Status::warning ? "warning"
                                                           : "failed";
    std::string text = status;
    text.resize(8, ' ');
    return text + check.what + ": " + check.reason;
}

void Diagnosis::start(std::function<void(int)> done) {
    done_ = std::move(done);
    // The configuration as --print-config reports it, its values indented under the check.
    const ConfigReport report(Config::platformLocations());
    const auto file = report.config().usedFile();
    head_.push_back({report.fileRead() ? Status::ok : Status::failed, "configuration file",
                     report.fileRead() ? file->string()
                     : file            ? file->string() + " cannot be read; every setting has its default"
                                       : "none found; every setting has its default"});
    for (auto& text : report.settingLines()) {
        head_.push_back({Status::ok, "", std::move(text)});
    }
    head_.push_back({Status::ok, "", "Log file: " + Logger::logFilePath().string()});

    checkOutlook();
    Config& config = Config::shared();
    const std::string address =
        config.fixedEmailAddress().value_or(OutlookHandler::defaultAccount.value_or(""));
    checkServer(address);
}

// The first cause that holds ends the checks of Outlook: the later ones cannot be told then.
void Diagnosis::checkOutlook() {
    outlook_ = std::make_unique<OutlookHandler>();
    const Blocker blocker = outlook_->blocker();
    const std::string cause = OutlookState::cause(blocker);
    if (blocker == Blocker::notInstalled) {
        tail_.push_back({Status::failed, "Outlook", cause});
        return;
    }
    const bool answers = blocker == Blocker::none || blocker == Blocker::newMode;
    const auto version = answers ? outlook_->getVersion() : std::nullopt;
    tail_.push_back({Status::ok, "Outlook", version ? "version " + *version + " installed" : "installed"});
    if (blocker == Blocker::newMode) {
        tail_.push_back({Status::failed, "Outlook mode", cause});
        return;
    }
    if (blocker == Blocker::automationRefused) {
        tail_.push_back({Status::failed, "automation of Outlook", cause});
        return;
    }
    tail_.push_back({Status::ok, "Outlook mode", "legacy Outlook, whose signatures the agent can manage"});
    tail_.push_back({Status::ok, "automation of Outlook", "allowed"});
    tail_.push_back(
        Platform::accessibility().isTrusted(false)
            ? Check{Status::ok, "accessibility", "granted"}
            : Check{Status::warning, "accessibility", OutlookState::cause(Blocker::accessibilityMissing)});
}

void Diagnosis::checkServer(const std::string& address) {
    Config& config = Config::shared();
    if (config.SignatureServerAutodetect()) {
        NetworkService directory;
        directory.getDefaultNamingContext();
        const auto host = directory.defaultNamingContext ? directory.getServiceDNSName() : std::nullopt;
        head_.push_back(host ? Check{Status::ok, "directory discovery", "found the signature server " + *host}
                             : Check{Status::failed, "directory discovery",
                                     "no signature server found in the directory (the log says why)"});
    } else {
        head_.push_back({Status::ok, "directory discovery", "not enabled; SignatureServerAddress is used"});
    }
    if (!config.knowsSignatureServer()) {
        finish({Status::failed, "signature server", "SignatureServerAddress is not set"});
        return;
    }
    const std::string where =
        config.SignatureServerAddress() + ":" + std::to_string(config.SignatureServerPort());
    // Without an address of its own the request still shows that the server answers.
    const std::string asked = address.empty() ? "diagnosis@invalid" : address;
    // The exchange's last line says why it failed, so it is captured as a run's lines are.
    Logger::captureEnabled = true;
    Logger::capturedLog.clear();
    service_ = std::make_shared<NetworkService>();
    service_->getSignatures(asked, [this, where, asked](std::optional<SignatureDescriptor> answer) {
        std::string lines = std::exchange(Logger::capturedLog, {});
        Logger::captureEnabled = false;
        if (!answer) {
            lines.erase(lines.find_last_not_of('\n') + 1);
            const auto last = lines.rfind('\n') + 1; // 0 for the only line
            const auto message = lines.size() > last + Logger::timestampLength
                                     ? lines.substr(last + Logger::timestampLength)
                                     : "the log says why";
            finish({Status::failed, "signature server",
                    "no usable answer from " + where + " (" + message + ")"});
        } else if (answer->noSetting) {
            finish({Status::warning, "signature server",
                    where + " answered: no signatures assigned to " + asked});
        } else {
            finish({Status::ok, "signature server", where + " answered with the signatures of " + asked});
        }
    });
}

void Diagnosis::finish(Check server) {
    std::vector<Check> checks = head_;
    checks.push_back(std::move(server));
    checks.insert(checks.end(), tail_.begin(), tail_.end());
    if (LoginItem* item = Platform::loginItem()) {
        checks.push_back(
            item->isInstalled()
                ? Check{Status::ok, "login item", "installed; the agent starts at login"}
                : Check{Status::warning, "login item", "not installed; the agent does not start at login"});
    }
    const auto last = LastRun::read();
    checks.push_back(!last ? Check{Status::warning, "last run", "none recorded"}
                     : last->succeeded
                         ? Check{Status::ok, "last run", last->time + ", succeeded"}
                         : Check{Status::warning, "last run", last->time + ", failed: " + last->failure});
    bool failed = false;
    for (const auto& check : checks) {
        out_ << (check.what.empty() ? "        " + check.reason : line(check)) << "\n";
        failed = failed || check.status == Status::failed;
    }
    out_.flush();
    done_(failed ? 1 : 0);
}

} // namespace varnoth
