#include "platform/PosixHostInfo.h"

#include <fstream>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace varnoth {

namespace {

// PRETTY_NAME of /etc/os-release, the distribution's own name for itself.
std::string distributionName() {
    std::ifstream in("/etc/os-release");
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
    std::string kernel;
    if (uname(&info) == 0) {
        kernel = std::string(info.sysname) + " " + info.release;
    }
#ifdef __APPLE__
    return "Version " + std::string(info.release);
#else
    const std::string distribution = distributionName();
    if (distribution.empty()) {
        return kernel;
    }
    return distribution + " (" + kernel + ")";
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
