// Unframed answer documents through the answer parser.
#include "fuzz/FuzzEnvironment.h"
#include "server/SignatureDocuments.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace varnoth;
    const std::string text(reinterpret_cast<const char*>(data), size);
    DeploymentFields fields;
    const auto descriptor = parseSignatureAnswer(text, fields);
    const std::string& information = fields.deployInformation;
    // The deployment information is sent back as is: it must be one whole element cut from the answer.
    if (!information.empty() &&
        (information.rfind("<DeploymentInformation>", 0) != 0 ||
         information.size() < std::string("<DeploymentInformation></DeploymentInformation>").size() ||
         information.compare(information.size() - 24, 24, "</DeploymentInformation>") != 0 ||
         text.find(information) == std::string::npos)) {
        std::abort();
    }
    if (descriptor && descriptor->noSetting &&
        (!descriptor->additionalSignatures.empty() || descriptor->removeOtherSignatures)) {
        std::abort();
    }
    varnoth::fuzz::FuzzEnvironment::trimLog();
    return 0;
}
