#pragma once

#include <stdexcept>
#include <string>

namespace varnoth {

// The errors of launch control's own making (file and coding errors keep their own types).
class LaunchControlError : public std::runtime_error {
public:
    enum class Code {
        urlNotSet, // load or unload of a record that was never read, written or located
    };

    static LaunchControlError urlNotSet(const std::string& label);

    Code code() const { return code_; }
    const std::string& label() const { return label_; }
    // "The URL is not set for agent <label>"
    std::string message() const { return what(); }

private:
    LaunchControlError(Code code, std::string label, const std::string& message)
        : std::runtime_error(message), code_(code), label_(std::move(label)) {}

    Code code_;
    std::string label_;
};

} // namespace varnoth
