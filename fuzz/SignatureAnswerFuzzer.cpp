// Unframed answer documents through the answer parser.
#include "fuzz/FuzzEnvironment.h"
#include "server/SignatureDocuments.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    const std::string text(fuzz::bytes(data, size));
    DeploymentFields fields;
    const auto descriptor = parseSignatureAnswer(text, fields);
    const std::string& information = fields.deployInformation;
    // The deployment information is sent back as is: it must be one whole element cut from the answer.
    const std::string_view open = "<DeploymentInformation>", close = "</DeploymentInformation>";
    fuzz::require(information.empty() ||
                  (information.rfind(open, 0) == 0 && information.size() >= open.size() + close.size() &&
                   information.compare(information.size() - close.size(), close.size(), close) == 0 &&
                   text.find(information) != std::string::npos));
    fuzz::require(!descriptor || !descriptor->noSetting ||
                  (descriptor->additionalSignatures.empty() && !descriptor->removeOtherSignatures));
    fuzz::FuzzEnvironment::trimLog();
    return 0;
}
