#include "outlook/OutlookHandler.h"

#include "base/Logger.h"
#include "base/TextValues.h"
#include "outlook/SignatureFormMemory.h"
#include "platform/Platform.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <iterator>
#include <set>
#include <string_view>
#include <utf8proc.h>
#include <utility>
#include <vector>

namespace varnoth {

namespace {

// The canonical decomposition (NFD) of UTF-8 text as code points; nothing when the text is not UTF-8.
// utf8proc's own normalisation reorders combining marks with an insertion sort, which takes hours on an
// answer holding a few hundred thousand marks; here each character is decomposed on its own and every
// run of marks is put in canonical order by a stable counting sort on the combining class, so the
// whole takes time linear in the text.
std::optional<std::vector<utf8proc_int32_t>> decomposed(std::string_view text) {
    std::vector<utf8proc_int32_t> points;
    points.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        utf8proc_int32_t point = 0;
        const utf8proc_ssize_t length =
            utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &point);
        if (length <= 0) {
            return std::nullopt;
        }
        at += static_cast<std::size_t>(length);
        utf8proc_int32_t pieces[32]; // no canonical decomposition is longer than four code points
        int boundary = 0;
        const utf8proc_ssize_t count =
            utf8proc_decompose_char(point, pieces, 32, UTF8PROC_DECOMPOSE, &boundary);
        if (count < 0 || count > 32) {
            return std::nullopt;
        }
        points.insert(points.end(), pieces, pieces + count);
    }

    const auto combiningClass = [](utf8proc_int32_t point) {
        return utf8proc_get_property(point)->combining_class;
    };
    std::vector<utf8proc_int32_t> sorted;
    std::array<std::size_t, 256> starts{};
    for (std::size_t start = 0; start < points.size();) {
        if (combiningClass(points[start]) == 0) {
            ++start;
            continue;
        }
        std::size_t end = start;
        while (end < points.size() && combiningClass(points[end]) != 0) {
            ++end;
        }
        const auto byClass = [&](utf8proc_int32_t a, utf8proc_int32_t b) {
            return combiningClass(a) < combiningClass(b);
        };
        if (end - start <= 16) {
            std::stable_sort(points.begin() + static_cast<std::ptrdiff_t>(start),
                             points.begin() + static_cast<std::ptrdiff_t>(end), byClass);
        } else {
            starts.fill(0);
            for (std::size_t i = start; i < end; ++i) {
                ++starts[combiningClass(points[i])];
            }
            std::size_t position = 0;
            for (auto& slot : starts) {
                position += std::exchange(slot, position);
            }
            sorted.resize(end - start);
            for (std::size_t i = start; i < end; ++i) {
                sorted[starts[combiningClass(points[i])]++] = points[i];
            }
            std::copy(sorted.begin(), sorted.end(), points.begin() + static_cast<std::ptrdiff_t>(start));
        }
        start = end;
    }
    return points;
}

} // namespace

OutlookHandler::OutlookHandler() {
    try {
        Platform::scriptHost().loadScripts();
    } catch (const std::exception&) {
        // Without scripts every operation below fails on its own, with its own line.
    }
    // Asking a missing Outlook would have the system look for it; a refused one answers nothing.
    OutlookEnvironment& system = Platform::outlookEnvironment();
    if (system.installed() == false) {
        blocker_ = OutlookState::Blocker::notInstalled;
    } else if (system.automation() == OutlookEnvironment::Automation::refused) {
        blocker_ = OutlookState::Blocker::automationRefused;
    }
    if (blocker_ != OutlookState::Blocker::none) {
        return;
    }
    if (const auto version = getVersion()) {
        Logger::log("Outlook " + Logger::quoted(*version) + " is installed");
    } else if (blocker_ == OutlookState::Blocker::none) {
        Logger::log("Error: Cannot get Outlook version");
    }
    if (!defaultAccount && blocker_ == OutlookState::Blocker::none) {
        defaultAccount = getDefaultAccount();
    }
}

bool OutlookHandler::noteBlocker(const AppleScriptProtocol& script) {
    const auto found = OutlookState::fromErrorNumber(script.lastFailure().errorNumber());
    if (found == OutlookState::Blocker::none) {
        return false;
    }
    if (blocker_ == OutlookState::Blocker::none) {
        blocker_ = found;
    }
    return true;
}

OutlookState::Blocker OutlookHandler::blocker() {
    if (blocker_ == OutlookState::Blocker::none && !probed_) {
        probed_ = true;
        if (auto script = makeScriptObject(); script && !script->getSignatureNames()) {
            noteBlocker(*script);
        }
    }
    if (blocker_ == OutlookState::Blocker::automationRefused &&
        Platform::outlookEnvironment().runningNewOutlook() == true) {
        blocker_ = OutlookState::Blocker::newMode;
    }
    return blocker_;
}

std::optional<AppleScriptProtocol> OutlookHandler::makeScriptObject() {
    try {
        if (auto object = Platform::scriptHost().makeObject(AppleScriptProtocol::className)) {
            return AppleScriptProtocol(std::make_unique<SignatureFormMemory>(std::move(object)));
        }
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

std::optional<std::string> OutlookHandler::getVersion() {
    if (auto script = makeScriptObject()) {
        auto version = script->getVersion();
        if (version && !version->empty()) {
            return version;
        }
        if (noteBlocker(*script)) {
            return std::nullopt; // the run names the cause once
        }
    }
    Logger::log("Error: cannot get Outlook version");
    return std::nullopt;
}

std::optional<std::string> OutlookHandler::getDefaultAccount() {
    Logger::log("Getting default Outlook account name");
    if (auto script = makeScriptObject()) {
        auto account = script->getDefaultAccount();
        if (account && !account->empty()) {
            Logger::log("Successfully got default Outlook account name: " + Logger::quoted(*account));
            return account;
        }
        if (noteBlocker(*script)) {
            return std::nullopt;
        }
    }
    Logger::log("Error: cannot get default Outlook account name");
    return std::nullopt;
}

bool OutlookHandler::canonicallyEqual(const std::string& first, const std::string& second) {
    if (first == second) {
        return true;
    }
    const auto firstForm = decomposed(first);
    const auto secondForm = decomposed(second);
    if (!firstForm || !secondForm) {
        return false;
    }
    return *firstForm == *secondForm;
}

bool OutlookHandler::holdsWritten(const std::string& name, const std::string& current,
                                  const std::string& content) {
    return !current.empty() &&
           (SignatureFormMemory::holds(name, current, content) || canonicallyEqual(current, content));
}

std::vector<std::string> OutlookHandler::deploymentSignatures(const SignatureDescriptor& descriptor) {
    std::vector<std::string> kept;
    for (const auto& [name, content] : descriptor.additionalSignatures) {
        kept.push_back(name);
    }
    if (descriptor.defaultSignatureAction != SignatureAction::clear) {
        kept.emplace_back(newSignatureName);
    }
    if (descriptor.replySignatureAction != SignatureAction::clear) {
        kept.emplace_back(replySignatureName);
    }
    return kept;
}

std::vector<std::string> OutlookHandler::othersThan(const std::vector<std::string>& names,
                                                    const std::vector<std::string>& kept) {
    std::set<std::string> keep;
    for (const auto& name : kept) {
        keep.insert(text::lowercased(name));
    }
    std::vector<std::string> others;
    std::ranges::copy_if(names, std::back_inserter(others),
                         [&](const std::string& name) { return keep.count(text::lowercased(name)) == 0; });
    return others;
}

bool OutlookHandler::needsUpdate(const std::string& name, const std::string& content,
                                 const std::string& successPrefix, const std::string& readError) {
    std::optional<std::string> current;
    if (auto script = makeScriptObject()) {
        current = script->getSignature(name);
    }
    if (!current) {
        // A signature that cannot be read is written anew.
        Logger::log(readError);
        return true;
    }
    const bool differs = !holdsWritten(name, *current, content);
    Logger::log(successPrefix + (differs ? "true" : "false"));
    return differs;
}

bool OutlookHandler::defaultNewSignatureNeedsUpdate(const std::string& content) {
    return needsUpdate(newEmailDesc, content, "Default new email signature needs update: ",
                       "Error: cannot get default Outlook signature");
}

bool OutlookHandler::defaultReplySignatureNeedsUpdate(const std::string& content) {
    return needsUpdate(replyEmailDesc, content, "Default reply forward email signature needs update: ",
                       "Error: cannot get default Outlook signature");
}

// AppleScript compares texts without regard to case unless told otherwise, so Outlook may well take
// "default new email signature" for the default too.
bool OutlookHandler::refusedName(const std::string& name, const char* action) {
    const std::string lowered = text::lowercased(name);
    if (lowered != text::lowercased(newSignatureName) && lowered != text::lowercased(replySignatureName)) {
        return false;
    }
    Logger::log("Error: signature '" + Logger::quoted(name) + "' " + action +
                ": the name is reserved for the agent's default signatures");
    return true;
}

bool OutlookHandler::refusedContent(const std::string& name, const std::string& content) {
    if (content.size() <= maxSignatureBytes) {
        return false;
    }
    Logger::log("Error: signature '" + Logger::quoted(name) + "' not installed: its content of " +
                std::to_string(content.size()) + " bytes exceeds " + std::to_string(maxSignatureBytes) +
                " bytes");
    return true;
}

bool OutlookHandler::createDefaultNewSignature(const std::string& content) {
    if (refusedContent(newEmailDesc, content)) {
        return false;
    }
    Logger::log("Creating default new email signature");
    auto script = makeScriptObject();
    if (!script || !script->createSignature(newEmailDesc, content)) {
        Logger::log("Error: failed to create default new email signature");
        return false;
    }
    Logger::log("Created default new email signature successfully");
    return true;
}

bool OutlookHandler::createDefaultReplySignature(const std::string& content) {
    if (refusedContent(replyEmailDesc, content)) {
        return false;
    }
    Logger::log("Creating default reply forward signature");
    auto script = makeScriptObject();
    if (!script || !script->createSignature(replyEmailDesc, content)) {
        Logger::log("Error: failed to create default reply forward signature");
        return false;
    }
    Logger::log("Created default reply forward signature");
    return true;
}

bool OutlookHandler::isInOutlook(const std::string& name) {
    auto script = makeScriptObject();
    const auto current = script ? script->getSignature(name) : std::nullopt;
    return !current || !current->empty();
}

void OutlookHandler::deleteDefault(const std::string& name, const std::string& subject) {
    std::string capitalized = subject;
    capitalized[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(capitalized[0])));
    // One that is not there is left alone: a steady run sends Outlook nothing to write.
    if (!isInOutlook(name)) {
        Logger::log(capitalized + " is not in Outlook");
        return;
    }
    auto script = makeScriptObject();
    if (!script || !script->deleteSignature(name)) {
        Logger::log("Error: cannot delete " + subject);
        return;
    }
    Logger::log(capitalized + " deleted");
}

void OutlookHandler::deleteDefaultNewSignature() {
    deleteDefault(newEmailDesc, "default new email signature");
}

void OutlookHandler::deleteDefaultReplySignature() {
    deleteDefault(replyEmailDesc, "default reply forward email signature");
}

bool OutlookHandler::updateSignature(const std::string& name, const std::string& content) {
    if (refusedName(name, "not installed") || refusedContent(name, content)) {
        return false;
    }
    if (!needsUpdate(name, content, "Signature " + Logger::quoted(name) + " needs update: ",
                     "Error: cannot get signature " + Logger::quoted(name))) {
        return true;
    }
    return create(name, content);
}

bool OutlookHandler::createSignature(const std::string& name, const std::string& content) {
    if (refusedName(name, "not installed") || refusedContent(name, content)) {
        return false;
    }
    return create(name, content);
}

bool OutlookHandler::create(const std::string& name, const std::string& content) {
    Logger::log("Creating signature " + Logger::quoted(name));
    auto script = makeScriptObject();
    if (!script || !script->createSignature(name, content)) {
        Logger::log("Error: failed to create signature " + Logger::quoted(name));
        return false;
    }
    Logger::log("Created signature " + Logger::quoted(name) + " successfully");
    return true;
}

void OutlookHandler::deleteSignature(const std::string& name) {
    if (refusedName(name, "not deleted")) {
        return;
    }
    auto script = makeScriptObject();
    if (!script || !script->deleteSignature(name)) {
        Logger::log("Error: cannot delete signature " + Logger::quoted(name));
        return;
    }
    Logger::log("Email signature " + Logger::quoted(name) + " deleted");
}

void OutlookHandler::deleteSignaturesExcept(const std::vector<std::string>& kept) {
    Logger::log("Removing signatures");
    auto script = makeScriptObject();
    const auto names = script ? script->getSignatureNames() : std::nullopt;
    if (!names) {
        Logger::log("Error: couldn't remove email signatures");
        return;
    }
    bool removed = true;
    for (const auto& name : othersThan(*names, kept)) {
        auto other = makeScriptObject();
        if (!other || !other->deleteSignature(name)) {
            Logger::log("Error: cannot delete signature " + Logger::quoted(name));
            removed = false;
        } else {
            Logger::log("Email signature " + Logger::quoted(name) + " deleted");
        }
    }
    Logger::log(removed ? "Email signatures removed successfully"
                        : "Error: couldn't remove email signatures");
}

void OutlookHandler::deleteSignatures() {
    Logger::log("Removing signatures");
    auto script = makeScriptObject();
    if (!script || !script->deleteSignatures()) {
        Logger::log("Error: couldn't remove email signatures");
        return;
    }
    Logger::log("Email signatures removed successfully");
}

bool OutlookHandler::applyDefaultSignatures(SignatureAction newAction, SignatureAction replyAction) {
    Logger::log("Applying default signature");
    auto script = makeScriptObject();
    if (!script || !defaultAccount) {
        Logger::log("Error: failed to apply signatures");
        return false;
    }
    const std::string account = *defaultAccount;

    // Each message is announced by its line. A failed first message does not keep the other default
    // from being tried; the operation fails once both have been sent.
    bool delivered = true;
    auto send = [&](const char* line, bool (AppleScriptProtocol::*message)(const std::string&)) {
        Logger::log(line);
        delivered = ((*script).*message)(account) && delivered;
    };
    const bool setNew = newAction == SignatureAction::change, clearNew = newAction == SignatureAction::clear;
    const bool setReply = replyAction == SignatureAction::change,
               clearReply = replyAction == SignatureAction::clear;
    if (setNew && setReply) {
        send("Automation will set both signatures", &AppleScriptProtocol::applySignaturesFor);
    } else if (clearNew && clearReply) {
        send("Automation will remove both signatures", &AppleScriptProtocol::applyNoneSignaturesFor);
    } else {
        if (setNew) {
            send("Automation will set new signature", &AppleScriptProtocol::applyDefaultNewSignatureFor);
        } else if (clearNew) {
            send("Automation will remove new signature",
                 &AppleScriptProtocol::applyNoneDefaultNewSignatureFor);
        }
        if (setReply) {
            send("Automation will set reply signature", &AppleScriptProtocol::applyDefaultReplySignatureFor);
        } else if (clearReply) {
            send("Automation will remove reply signature",
                 &AppleScriptProtocol::applyNoneDefaultReplySignatureFor);
        }
    }
    if (!delivered) {
        Logger::log("Error: failed to apply signatures");
        return false;
    }
    Logger::log("Applied default signatures successfully");
    return true;
}

} // namespace varnoth
