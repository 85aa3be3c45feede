#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace varnoth::signatureserver {

// One signature template: an HTML file of the data folder's "templates" folder. Ids are 1, 2, 3, ...
// in the order of the file names.
struct Template {
    std::string id;
    std::string file;
    std::string html;
};

// How a mailbox or group deploys signatures, as written in signatures.conf.
struct Deployment {
    std::optional<std::string> defaultTemplate; // a file name, "none" or "keep"
    std::optional<std::string> replyTemplate;
    std::vector<std::pair<std::string, std::string>> additional; // signature name, file name
    std::optional<std::string> removeOther;                      // remove, preserve or global
    std::optional<std::string> group;                            // mailboxes only
    int groupLine = 0;                                           // the line of signatures.conf naming it
};

// The demo server's data folder: signatures.conf and the templates folder. Loading checks every
// reference, so a data set that loads can answer every mailbox it names.
class DataSet {
public:
    static DataSet load(const std::filesystem::path& folder); // throws std::runtime_error

    bool removeOtherSignatures = false;          // the global deployment option
    std::map<std::string, Template> templates;   // by file name
    std::map<std::string, Deployment> groups;    // by name
    std::map<std::string, Deployment> mailboxes; // by address in lower case

    // The answer document (UTF-8, with its XML declaration) for a mailbox, matched without regard
    // to letter case. An unknown mailbox gets an answer without a deployment identifier.
    std::string answerFor(const std::string& mailbox) const;
};

// The whole content of a file; throws std::runtime_error when it cannot be read.
std::string readFile(const std::filesystem::path& path);

} // namespace varnoth::signatureserver
