#pragma once

#include "server/SignatureDescriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// The documents exchanged with the signature server: the GetSignatures request and its Response
// answer, and the SubmitDeploymentLog request.
namespace varnoth {

// The framed wire bytes of the GetSignatures request; the address goes in unchanged (not escaped).
std::string makeSignaturesRequest(const std::string& emailAddress);

// The framed wire bytes of the SubmitDeploymentLog request around a prepared body.
std::string makeDeploymentLogRequest(const std::string& body);

// The deployment identification of an answer, sent back with the deployment log.
struct DeploymentFields {
    std::string deployIdentifier;
    std::string deployInformation;
};

// Reads an unframed answer into a descriptor, logging each decision. Returns nothing only when the
// XML parser rejected the document; an answer without a setting gives the no-setting descriptor.
// An element that is present without character data counts as having no text (blanks are character
// data); the text of an element is all of its direct character data and CDATA sections, entities
// decoded.
std::optional<SignatureDescriptor> parseSignatureAnswer(const std::string& text, DeploymentFields& fields);

// The text with A-Z in lower case; other bytes unchanged.
std::string asciiLowercase(std::string text);

// "&" to "&amp;", then ">" to "&gt;", then "<" to "&lt;"; nothing else is touched.
std::string escapeDeploymentLog(std::string_view log);

// The two time stamps of a deployment log, "yyyy-MM-ddTHH:mm:ss" in UTC and in the process's time zone.
struct DeploymentTimes {
    std::string utc;
    std::string local;
};
DeploymentTimes deploymentTimes(std::chrono::system_clock::time_point instant);

// The SubmitDeploymentLog body: identifier, deployment information, executable name and version,
// result, escaped log and the two time stamps, in this order with nothing between them.
struct DeploymentLogContent {
    std::string deployIdentifier;
    std::string deployInformation;
    std::string bundleName;
    std::string shortVersion;
    std::string bundleVersion;
    bool success = false;
    std::string log;
    DeploymentTimes times;
};
std::string makeDeploymentLogBody(const DeploymentLogContent& content);

} // namespace varnoth
