#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

namespace varnoth {

// The read, write and execute bits of one class of users (owner, group or others). Any integer is
// accepted as a raw value; only the three low bits show in the description.
class PermissionBits {
public:
    static const PermissionBits read;    // 4
    static const PermissionBits write;   // 2
    static const PermissionBits execute; // 1

    constexpr PermissionBits() = default;
    constexpr explicit PermissionBits(std::int64_t rawValue) : rawValue_(rawValue) {}
    constexpr PermissionBits(std::initializer_list<PermissionBits> members) {
        for (const PermissionBits member : members) {
            rawValue_ |= member.rawValue_;
        }
    }

    constexpr std::int64_t rawValue() const { return rawValue_; }
    constexpr bool isEmpty() const { return rawValue_ == 0; }
    constexpr bool contains(PermissionBits member) const {
        return (rawValue_ & member.rawValue_) == member.rawValue_;
    }
    constexpr bool isSubset(PermissionBits other) const { return (rawValue_ & other.rawValue_) == rawValue_; }
    constexpr bool isSuperset(PermissionBits other) const { return other.isSubset(*this); }
    constexpr bool isDisjoint(PermissionBits other) const { return (rawValue_ & other.rawValue_) == 0; }

    constexpr PermissionBits operator|(PermissionBits other) const {
        return PermissionBits(rawValue_ | other.rawValue_);
    }
    constexpr PermissionBits operator&(PermissionBits other) const {
        return PermissionBits(rawValue_ & other.rawValue_);
    }
    constexpr PermissionBits operator^(PermissionBits other) const {
        return PermissionBits(rawValue_ ^ other.rawValue_);
    }
    constexpr PermissionBits subtracting(PermissionBits other) const {
        return PermissionBits(rawValue_ & ~other.rawValue_);
    }
    constexpr void formUnion(PermissionBits other) { rawValue_ |= other.rawValue_; }
    constexpr void formIntersection(PermissionBits other) { rawValue_ &= other.rawValue_; }
    constexpr void formSymmetricDifference(PermissionBits other) { rawValue_ ^= other.rawValue_; }

    // Adds the member; answers whether it was missing, and the member as now contained.
    std::pair<bool, PermissionBits> insert(PermissionBits member);
    // Takes the member out; answers the part of it that was there, nothing when none was.
    std::optional<PermissionBits> remove(PermissionBits member);
    // Adds the member; answers the part of it that was there before, nothing when none was.
    std::optional<PermissionBits> update(PermissionBits member);

    // "r", "w" and "x", or "-" for each missing bit: 5 is r-x.
    std::string description() const;

    constexpr bool operator==(const PermissionBits&) const = default;

private:
    std::int64_t rawValue_ = 0;
};

inline constexpr PermissionBits PermissionBits::read{4};
inline constexpr PermissionBits PermissionBits::write{2};
inline constexpr PermissionBits PermissionBits::execute{1};

} // namespace varnoth
