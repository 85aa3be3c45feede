#include "tools/signature-server/DataSet.h"

#include "base/TextValues.h"
#include "server/SignatureDocuments.h"

#include <algorithm>
#include <fstream>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>

namespace varnoth::signatureserver {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

namespace {

class StringWriter final : public pugi::xml_writer {
public:
    void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
    std::string text;
};

void addText(pugi::xml_node parent, const char* name, const std::string& value) {
    parent.append_child(name).append_child(pugi::node_pcdata).set_value(value.c_str());
}

} // namespace

DataSet DataSet::load(const std::filesystem::path& folder) {
    DataSet data;
    const auto templateFolder = folder / "templates";
    std::vector<std::string> files;
    if (std::filesystem::is_directory(templateFolder)) {
        for (const auto& entry : std::filesystem::directory_iterator(templateFolder)) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path().filename().string());
            }
        }
    }
    std::sort(files.begin(), files.end());
    for (std::size_t i = 0; i < files.size(); ++i) {
        data.templates[files[i]] =
            Template{std::to_string(i + 1), files[i], readFile(templateFolder / files[i])};
    }

    const auto configPath = folder / "signatures.conf";
    std::istringstream lines(readFile(configPath));
    Deployment* current = nullptr;
    bool inGlobal = false;
    int number = 0;
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error(configPath.string() + ":" + std::to_string(number) + ": " + why);
    };
    for (std::string raw; std::getline(lines, raw);) {
        ++number;
        const std::string line(text::trimmed(raw));
        if (line.empty() || line[0] == '#' || line[0] == ';') {
            continue;
        }
        if (line.front() == '[') {
            if (line.back() != ']') {
                fail("unclosed section header");
            }
            const std::string header(text::trimmed(std::string_view(line).substr(1, line.size() - 2)));
            const std::size_t blank = header.find(' ');
            const std::string kind = header.substr(0, blank);
            const std::string name = blank == std::string::npos
                                         ? ""
                                         : std::string(text::trimmed(std::string_view(header).substr(blank)));
            inGlobal = kind == "global";
            current = nullptr;
            if (kind == "group" && !name.empty()) {
                current = &data.groups[name];
            } else if (kind == "mailbox" && !name.empty()) {
                current = &data.mailboxes[asciiLowercase(name)];
            } else if (!inGlobal) {
                fail("expected [global], [group NAME] or [mailbox ADDRESS]");
            }
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            fail("expected key = value");
        }
        const std::string key(text::trimmed(std::string_view(line).substr(0, equals)));
        const std::string value(text::trimmed(std::string_view(line).substr(equals + 1)));
        const auto needTemplate = [&](const std::string& file) {
            if (!data.templates.count(file)) {
                fail("no template file templates/" + file);
            }
        };
        if (inGlobal) {
            if (key != "remove-other-signatures") {
                fail("unknown global setting " + key);
            }
            if (asciiLowercase(value) != "true" && asciiLowercase(value) != "false") {
                fail("remove-other-signatures is true or false");
            }
            data.removeOtherSignatures = asciiLowercase(value) == "true";
        } else if (current == nullptr) {
            fail("setting outside a section");
        } else if (key == "default" || key == "reply") {
            if (value != "none" && value != "keep") {
                needTemplate(value);
            }
            (key == "default" ? current->defaultTemplate : current->replyTemplate) = value;
        } else if (key == "additional") {
            const std::size_t bar = value.rfind('|');
            if (bar == std::string::npos) {
                fail("expected additional = NAME | FILE");
            }
            const std::string file(text::trimmed(std::string_view(value).substr(bar + 1)));
            needTemplate(file);
            current->additional.emplace_back(
                std::string(text::trimmed(std::string_view(value).substr(0, bar))), file);
        } else if (key == "remove-other") {
            if (value != "remove" && value != "preserve" && value != "global") {
                fail("remove-other is remove, preserve or global");
            }
            current->removeOther = value;
        } else if (key == "group") {
            current->group = value;
            current->groupLine = number;
        } else {
            fail("unknown setting " + key);
        }
    }
    for (const auto& [address, mailbox] : data.mailboxes) {
        if (mailbox.group && !data.groups.count(*mailbox.group)) {
            number = mailbox.groupLine; // groups may follow their mailboxes, so the check comes last
            fail("mailbox " + address + " names the unknown group " + *mailbox.group);
        }
    }
    return data;
}

std::string DataSet::answerFor(const std::string& requested) const {
    pugi::xml_document document;
    pugi::xml_node response = document.append_child("Response");
    const auto found = mailboxes.find(asciiLowercase(requested));

    if (found == mailboxes.end()) {
        // No deployment for this mailbox: the ids say "leave it as it is" and there is no identifier.
        pugi::xml_node data = response.append_child("DeploymentData");
        addText(data, "DefaultSignature", "-1");
        addText(data, "ReplyForwardSignature", "-1");
    } else {
        const std::string& address = found->first;
        Deployment effective = found->second;
        std::string source = "Mailbox";
        std::string sourceName = address;
        if (effective.group) {
            const Deployment& group = groups.at(*effective.group);
            source = "Group";
            sourceName = *effective.group;
            effective.defaultTemplate =
                effective.defaultTemplate ? effective.defaultTemplate : group.defaultTemplate;
            effective.replyTemplate = effective.replyTemplate ? effective.replyTemplate : group.replyTemplate;
            effective.removeOther = effective.removeOther ? effective.removeOther : group.removeOther;
            if (effective.additional.empty()) {
                effective.additional = group.additional;
            }
        }

        addText(response, "Identifier",
                source == "Group" ? "group:" + sourceName + "/" + address : "mailbox:" + address);
        pugi::xml_node information = response.append_child("DeploymentInformation");
        addText(information, "DeploymentDataSource", source);
        addText(information, "DeploymentDataSourceName", sourceName);

        const auto idOf = [&](const std::optional<std::string>& choice) -> std::string {
            if (!choice || *choice == "keep") {
                return "-1";
            }
            if (*choice == "none") {
                return "0";
            }
            return templates.at(*choice).id;
        };
        pugi::xml_node data = response.append_child("DeploymentData");
        addText(data, "DefaultSignature", idOf(effective.defaultTemplate));
        addText(data, "ReplyForwardSignature", idOf(effective.replyTemplate));
        const std::string removeOther = effective.removeOther.value_or("global");
        addText(data, "RemoveOtherSignatures",
                removeOther == "remove"     ? "RemoveOtherSignatures"
                : removeOther == "preserve" ? "PreseveOtherSignatures"
                                            : "UseGlobalSettings");
        pugi::xml_node list = data.append_child("Templates");
        const auto addTemplate = [&](const Template& item, const std::string& name) {
            pugi::xml_node node = list.append_child("Template");
            addText(node, "Id", item.id);
            addText(node, "Name", name);
            addText(node, "HTML", item.html);
        };
        std::vector<std::string> defaults;
        for (const auto& choice : {effective.defaultTemplate, effective.replyTemplate}) {
            if (choice && templates.count(*choice) &&
                std::find(defaults.begin(), defaults.end(), *choice) == defaults.end()) {
                defaults.push_back(*choice);
                addTemplate(templates.at(*choice), std::filesystem::path(*choice).stem().string());
            }
        }
        for (const auto& [name, file] : effective.additional) {
            addTemplate(templates.at(file), name);
        }
    }

    pugi::xml_node settings = response.append_child("ApplicationSettings");
    addText(settings, "RemoveOtherSignatures", removeOtherSignatures ? "true" : "false");

    StringWriter writer;
    document.save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
    return std::string(R"(<?xml version="1.0" encoding="utf-16"?>)") + writer.text;
}

} // namespace varnoth::signatureserver
