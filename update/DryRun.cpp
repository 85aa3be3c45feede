#include "update/DryRun.h"

#include "base/Logger.h"
#include "config/Config.h"
#include "outlook/OutlookHandler.h"
#include "platform/Platform.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>

namespace varnoth {

namespace {

std::string named(const std::string& name) {
    return "'" + Logger::quoted(name) + "'";
}

// What Outlook holds under the name: nothing when it cannot be read, empty text when it has none.
std::optional<std::string> held(OutlookHandler& outlook, const std::string& name) {
    auto script = outlook.makeScriptObject();
    return script ? script->getSignature(name) : std::nullopt;
}

// "create" or "update" when the run would write the signature, as the run compares it; else nothing.
std::optional<std::string> write(OutlookHandler& outlook, const std::string& name,
                                 const std::string& content) {
    const auto current = held(outlook, name);
    if (current && OutlookHandler::holdsWritten(name, *current, content)) {
        return std::nullopt;
    }
    return (!current || current->empty() ? "create signature " : "update signature ") + named(name);
}

} // namespace

DryRun::DryRun(Options options, std::ostream& out) : options_(std::move(options)), out_(out) {}

DryRun::~DryRun() = default;

std::optional<SignatureDescriptor> DryRun::readAnswer(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    std::string text = bytes.str();
    // UTF-16 as on the wire: its ASCII letters come with NUL bytes.
    if (text.find('\0') != std::string::npos) {
        auto decoded = utf16::decode(text);
        if (!decoded) {
            return std::nullopt;
        }
        text = std::move(*decoded);
    }
    DeploymentFields fields;
    return parseSignatureAnswer(framing::unframe(std::move(text)), fields);
}

std::vector<std::string> DryRun::changes(const SignatureDescriptor& answer, OutlookHandler& outlook) {
    std::vector<std::string> lines;
    if (answer.removeOtherSignatures) {
        auto script = outlook.makeScriptObject();
        const auto names = script ? script->getSignatureNames() : std::nullopt;
        for (const auto& name : OutlookHandler::othersThan(names.value_or(std::vector<std::string>{}),
                                                           OutlookHandler::deploymentSignatures(answer))) {
            lines.push_back("delete signature " + named(name) + " (not in the deployment)");
        }
    }

    bool defaultChanged = false;
    const auto plan = [&](SignatureAction action, const std::optional<std::string>& content, const char* name,
                          const char* subject) {
        if (action == SignatureAction::change && content && !content->empty()) {
            if (auto line = write(outlook, name, *content)) {
                lines.push_back(*line);
                lines.push_back(std::string("default for ") + subject + ": " + named(name));
                defaultChanged = true;
            }
        } else if (action == SignatureAction::clear) {
            const auto current = held(outlook, name);
            if (!current || !current->empty()) {
                lines.push_back("delete signature " + named(name));
                lines.push_back(std::string("default for ") + subject + ": none");
            }
        }
    };
    plan(answer.defaultSignatureAction, answer.defaultSignature, OutlookHandler::newSignatureName,
         "new messages");
    plan(answer.replySignatureAction, answer.replySignature, OutlookHandler::replySignatureName,
         "replies and forwards");

    for (const auto& name :
         Platform::userDefaults().stringArray("additionalSignatures").value_or(std::vector<std::string>{})) {
        // One that the removal of other signatures takes already goes once.
        const bool removed = std::ranges::find(lines, "delete signature " + named(name) +
                                                          " (not in the deployment)") != lines.end();
        if (answer.additionalSignatures.count(name) == 0 && !removed) {
            lines.push_back("delete signature " + named(name) + " (no longer assigned)");
        }
    }
    std::vector<std::string> names;
    for (const auto& [name, content] : answer.additionalSignatures) {
        names.push_back(name);
    }
    std::ranges::sort(names);
    for (const auto& name : names) {
        if (auto line = write(outlook, name, answer.additionalSignatures.at(name))) {
            lines.push_back(*line);
        }
    }
    if (defaultChanged) {
        lines.emplace_back("apply dialog: would open");
    }
    return lines;
}

void DryRun::start(std::function<void(int)> done) {
    done_ = std::move(done);
    outlook_ = std::make_unique<OutlookHandler>();
    if (const auto blocker = outlook_->blocker(); blocker != OutlookState::Blocker::none) {
        done_(fail(OutlookState::cause(blocker)));
        return;
    }
    if (!options_.answerFile.empty()) {
        const auto answer = readAnswer(options_.answerFile);
        if (!answer) {
            done_(fail("cannot read the answer document " + options_.answerFile.string()));
            return;
        }
        finish(answer);
        return;
    }
    Config& config = Config::shared();
    std::string address = options_.email;
    if (address.empty()) {
        address = config.fixedEmailAddress().value_or(OutlookHandler::defaultAccount.value_or(""));
    }
    if (address.empty()) {
        done_(fail("no email address: give one with --email"));
        return;
    }
    if (!config.knowsSignatureServer()) {
        done_(fail("no signature server: SignatureServerAddress is not set"));
        return;
    }
    out_ << "Mailbox: " << address << "\n";
    service_ = std::make_shared<NetworkService>();
    service_->getSignatures(address, [this](std::optional<SignatureDescriptor> answer) {
        if (!answer) {
            done_(fail("the signature server gave no answer (the log says why)"));
            return;
        }
        finish(answer);
    });
}

void DryRun::finish(const std::optional<SignatureDescriptor>& answer) {
    if (answer->noSetting) {
        out_ << "no signatures are assigned to this mailbox: a run would change nothing\n";
        done_(nothingToChange);
        return;
    }
    const auto lines = changes(*answer, *outlook_);
    for (const auto& line : lines) {
        out_ << line << "\n";
    }
    if (lines.empty()) {
        out_ << "no changes\n";
    }
    out_.flush();
    done_(lines.empty() ? nothingToChange : wouldChange);
}

int DryRun::fail(const std::string& why) {
    out_ << "failed: " << why << "\n";
    out_.flush();
    return failed;
}

} // namespace varnoth
