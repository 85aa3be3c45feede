#include "platform/mac/MacHostInfo.h"

#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"

namespace varnoth {

namespace {

std::optional<std::string> text(NSString* value) {
    std::string result = foundation::utf8(value);
    if (result.empty()) {
        return std::nullopt;
    }
    return result;
}

} // namespace

std::unique_ptr<MacHostInfo> MacHostInfo::Create() {
    AutoreleasePool pool;
    if ([NSProcessInfo processInfo] == nil) {
        return nullptr;
    }
    return std::unique_ptr<MacHostInfo>(new MacHostInfo());
}

std::string MacHostInfo::operatingSystemVersion() const {
    AutoreleasePool pool;
    return text([[NSProcessInfo processInfo] operatingSystemVersionString]).value_or(std::string());
}

std::string MacHostInfo::loginName() const {
    AutoreleasePool pool;
    return text(NSUserName()).value_or(std::string());
}

std::optional<std::string> MacHostInfo::computerName() const {
    AutoreleasePool pool;
    return text([[NSHost currentHost] localizedName]);
}

} // namespace varnoth
