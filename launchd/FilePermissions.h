#pragma once

#include "launchd/PermissionBits.h"

#include <cstdint>
#include <string>

namespace varnoth {

// A file mode's permission bits for owner, group and others, convertible to and from the number that
// chmod and a job's Umask hold and its octal ("755") and symbolic ("-rwxr-xr-x") texts.
class FilePermissions {
public:
    FilePermissions(PermissionBits user, PermissionBits group, PermissionBits other)
        : user_(user), group_(group), other_(other) {}
    virtual ~FilePermissions() = default;
    FilePermissions(const FilePermissions&) = default;
    FilePermissions& operator=(const FilePermissions&) = default;

    // Only the last three octal digits count, so 1005 (octal 1755) gives rwxr-xr-x. A negative number
    // is taken by its low nine bits in two's complement, as the kernel takes a mode.
    static FilePermissions fromValue(std::int64_t value);
    // The permissions that a umask leaves: fromUmask(18), octal 022, gives rwxr-xr-x.
    static FilePermissions fromUmask(std::int64_t umask);

    virtual PermissionBits user() const { return user_; }
    virtual void setUser(PermissionBits bits) { user_ = bits; }
    virtual PermissionBits group() const { return group_; }
    virtual void setGroup(PermissionBits bits) { group_ = bits; }
    virtual PermissionBits other() const { return other_; }
    virtual void setOther(PermissionBits bits) { other_ = bits; }

    // The raw values are combined arithmetically, unchecked: user * 64 + group * 8 + other.
    virtual std::int64_t value() const;
    virtual std::string octal() const;
    virtual std::string symbolic() const;
    // "Permissions u+rw-, g+r--, o+r--"
    virtual std::string description() const;

    std::int64_t umaskValue() const;
    std::string umaskOctal() const;

    // A number in base 8, cut to its last three characters or padded with leading zeros to three.
    static std::string octalText(std::int64_t number);

private:
    PermissionBits user_;
    PermissionBits group_;
    PermissionBits other_;
};

} // namespace varnoth
