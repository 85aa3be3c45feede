#include "platform/mac/MacHostInfo.h"

#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"

#ifdef __APPLE__
#import <SystemConfiguration/SystemConfiguration.h>
#else
#import "platform/mac/gnustep/AppleOnlyShim.h"
#endif

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
    // The system configuration holds the name set in System Settings; NSHost would ask DNS for it and can
    // hold up the start on a network that does not answer.
    CFStringRef name = SCDynamicStoreCopyComputerName(nullptr, nullptr);
    if (name == nullptr) {
        return std::nullopt;
    }
    return text([(NSString*)name autorelease]);
}

} // namespace varnoth
