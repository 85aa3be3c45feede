#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace varnoth {

// Why a property list could not be turned into a record or back. The coding path names the keys
// (and array indexes) from the root to the offending value, so a log line can point at it.
class PropertyListError : public std::runtime_error {
public:
    enum class Kind {
        typeMismatch,  // the value has another type than the key needs
        keyNotFound,   // a required key is missing
        dataCorrupted, // the bytes are no property list, or a value is out of its range
        invalidValue,  // the encoder cannot represent a value
    };

    PropertyListError(Kind kind, std::vector<std::string> codingPath, const std::string& detail);

    Kind kind() const { return kind_; }
    const std::vector<std::string>& codingPath() const { return codingPath_; }
    // The coding path joined with dots, e.g. "MachServices.com.example.helper.ResetAtClose".
    std::string codingPathText() const;

private:
    Kind kind_;
    std::vector<std::string> codingPath_;
};

} // namespace varnoth
