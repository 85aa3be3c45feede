#include "launchd/PermissionBits.h"

namespace varnoth {

std::pair<bool, PermissionBits> PermissionBits::insert(PermissionBits member) {
    if (contains(member)) {
        return {false, *this & member};
    }
    formUnion(member);
    return {true, member};
}

std::optional<PermissionBits> PermissionBits::remove(PermissionBits member) {
    const PermissionBits removed = *this & member;
    *this = subtracting(member);
    if (removed.isEmpty()) {
        return std::nullopt;
    }
    return removed;
}

std::optional<PermissionBits> PermissionBits::update(PermissionBits member) {
    const PermissionBits previous = *this & member;
    formUnion(member);
    if (previous.isEmpty()) {
        return std::nullopt;
    }
    return previous;
}

std::string PermissionBits::description() const {
    std::string text = "---";
    if ((rawValue_ & 4) != 0) {
        text[0] = 'r';
    }
    if ((rawValue_ & 2) != 0) {
        text[1] = 'w';
    }
    if ((rawValue_ & 1) != 0) {
        text[2] = 'x';
    }
    return text;
}

} // namespace varnoth
