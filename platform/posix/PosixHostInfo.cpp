#include "platform/posix/PosixHostInfo.h"

#include <fstream>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace varnoth {

namespace {

// PRETTY_NAME of os-release, the distribution's own name for itself; /usr/lib holds the vendor's copy
// when /etc has none.
std::string distributionName() {
    std::ifstream in("/etc/os-release");
    if (!in) {
        in.open("/usr/lib/os-release");
    }
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("PRETTY_NAME=", 0) == 0) {
            std::string value = line.substr(12);
            if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
                value = value.substr(1, value.size() - 2);
            }
            return value;
        }
    }
    return {};
}

} // namespace

std::string PosixHostInfo::operatingSystemVersion() const {
    utsname info{};
    if (uname(&info) != 0) {
        return distributionName();
    }
#ifdef __APPLE__
    return "Version " + std::string(info.release);
#else
    // "Debian GNU/Linux 12 (bookworm), Linux kernel 6.1.0-18-amd64"
    const std::string kernel = std::string(info.sysname) + " kernel " + info.release;
    const std::string distribution = distributionName();
    return distribution.empty() ? kernel : distribution + ", " + kernel;
#endif
}

std::string PosixHostInfo::operatingSystemName() const {
#ifdef __APPLE__
    return "macOS";
#else
    return {};
#endif
}

std::string PosixHostInfo::loginName() const {
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_name != nullptr) {
        return entry->pw_name;
    }
    if (const char* name = getlogin(); name != nullptr) {
        return name;
    }
    return {};
}

std::optional<std::string> PosixHostInfo::computerName() const {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') {
        return std::nullopt;
    }
    return std::string(name);
}

} // namespace varnoth
