#include "launchd/PropertyListError.h"

namespace varnoth {

namespace {

std::string joined(const std::vector<std::string>& path) {
    std::string text;
    for (const auto& component : path) {
        if (!text.empty()) {
            text += '.';
        }
        text += component;
    }
    return text;
}

std::string kindText(PropertyListError::Kind kind) {
    switch (kind) {
    case PropertyListError::Kind::typeMismatch:
        return "Type mismatch";
    case PropertyListError::Kind::keyNotFound:
        return "Key not found";
    case PropertyListError::Kind::dataCorrupted:
        return "Data corrupted";
    case PropertyListError::Kind::invalidValue:
        return "Invalid value";
    }
    return "Property list error";
}

std::string message(PropertyListError::Kind kind, const std::vector<std::string>& path,
                    const std::string& detail) {
    std::string text = kindText(kind);
    if (!path.empty()) {
        text += " at " + joined(path);
    }
    return text + ": " + detail;
}

} // namespace

PropertyListError::PropertyListError(Kind kind, std::vector<std::string> codingPath,
                                     const std::string& detail)
    : std::runtime_error(message(kind, codingPath, detail)), kind_(kind), codingPath_(std::move(codingPath)) {
}

std::string PropertyListError::codingPathText() const {
    return joined(codingPath_);
}

} // namespace varnoth
