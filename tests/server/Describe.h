#pragma once

#include "server/NetworkService.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnoth::test {

// Every field of the descriptor, the deployment identification the parse left and its log lines, as the
// server goldens hold them.
inline std::string describe(const std::optional<SignatureDescriptor>& d, const NetworkService& service,
                            const std::vector<std::string>& lines) {
    static const char* const actions[] = {"undefined", "change", "clear", "dontchange"};
    const auto shown = [](const std::optional<std::string>& text) {
        return text ? "\"" + *text + "\"" : "-";
    };
    std::string text = "descriptor: -\n";
    if (d) {
        text = "default: " + std::string(actions[int(d->defaultSignatureAction)]) + " " +
               shown(d->defaultSignature) + "\nreply: " + actions[int(d->replySignatureAction)] + " " +
               shown(d->replySignature) + "\nremove other: " + (d->removeOtherSignatures ? "yes" : "no") +
               ", no setting: " + (d->noSetting ? "yes" : "no") + "\n";
        for (const auto& [name, html] :
             std::map(d->additionalSignatures.begin(), d->additionalSignatures.end())) {
            text += "additional: \"" + name + "\" " + shown(html) + "\n";
        }
    }
    text += "identifier: " + service.deployIdentifier + "\ninformation: " + service.deployInformation + "\n";
    for (const auto& line : lines) {
        text += "log: " + line + "\n";
    }
    return text;
}

} // namespace varnoth::test
