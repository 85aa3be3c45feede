#include "launchd/FilePermissions.h"

#include <charconv>

namespace varnoth {

namespace {

// Wrapping arithmetic: raw values are not checked, and overflow must not be undefined behaviour.
std::int64_t combined(std::int64_t high, std::int64_t middle, std::int64_t low) {
    const auto value = static_cast<std::uint64_t>(high) * 64U + static_cast<std::uint64_t>(middle) * 8U +
                       static_cast<std::uint64_t>(low);
    return static_cast<std::int64_t>(value);
}

std::int64_t complement(std::int64_t raw) {
    return static_cast<std::int64_t>(7U - static_cast<std::uint64_t>(raw));
}

std::int64_t digit(std::int64_t number, int position) {
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(number) >> (3 * position)) & 7U);
}

} // namespace

FilePermissions FilePermissions::fromValue(std::int64_t value) {
    return FilePermissions(PermissionBits(digit(value, 2)), PermissionBits(digit(value, 1)),
                           PermissionBits(digit(value, 0)));
}

FilePermissions FilePermissions::fromUmask(std::int64_t umask) {
    return FilePermissions(PermissionBits(7 - digit(umask, 2)), PermissionBits(7 - digit(umask, 1)),
                           PermissionBits(7 - digit(umask, 0)));
}

std::int64_t FilePermissions::value() const {
    return combined(user().rawValue(), group().rawValue(), other().rawValue());
}

std::string FilePermissions::octal() const {
    return octalText(value());
}

std::string FilePermissions::symbolic() const {
    return "-" + user().description() + group().description() + other().description();
}

std::string FilePermissions::description() const {
    return "Permissions u+" + user().description() + ", g+" + group().description() + ", o+" +
           other().description();
}

std::int64_t FilePermissions::umaskValue() const {
    return combined(complement(user().rawValue()), complement(group().rawValue()),
                    complement(other().rawValue()));
}

std::string FilePermissions::umaskOctal() const {
    return octalText(umaskValue());
}

std::string FilePermissions::octalText(std::int64_t number) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, number, 8);
    std::string text(buffer, result.ptr);
    if (text.size() >= 3) {
        return text.substr(text.size() - 3);
    }
    return std::string(3 - text.size(), '0') + text;
}

} // namespace varnoth
