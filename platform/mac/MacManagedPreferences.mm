#include "platform/mac/MacManagedPreferences.h"

#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"

#ifndef __APPLE__
#import "platform/mac/gnustep/AppleOnlyShim.h"
#endif

#include <cstring>

namespace varnoth {

namespace {

// A property-list object as the configuration reads it. Booleans are told from numbers by their class
// (CFBoolean on macOS), since both answer objCType "c".
PreferenceValue valueOf(id object) {
    using Type = PreferenceValue::Type;
    if ([object isKindOfClass:[NSString class]]) {
        return {Type::text, foundation::utf8(object)};
    }
    if ([object isKindOfClass:[[NSNumber numberWithBool:YES] class]]) {
        return {Type::boolean, [object boolValue] ? "true" : "false"};
    }
    if ([object isKindOfClass:[NSNumber class]]) {
        const char* type = [object objCType];
        if (std::strcmp(type, @encode(double)) == 0 || std::strcmp(type, @encode(float)) == 0) {
            return {Type::real, foundation::utf8([object stringValue])};
        }
        if (std::strcmp(type, @encode(unsigned long long)) == 0) {
            return {Type::integer, std::to_string([object unsignedLongLongValue])};
        }
        return {Type::integer, std::to_string([object longLongValue])};
    }
    const char* name = [object isKindOfClass:[NSArray class]]        ? "array"
                       : [object isKindOfClass:[NSDictionary class]] ? "dictionary"
                       : [object isKindOfClass:[NSDate class]]       ? "date"
                                                                     : "data";
    return {Type::other, name};
}

} // namespace

std::unique_ptr<MacManagedPreferences> MacManagedPreferences::Create() {
    AutoreleasePool pool;
    NSUserDefaults* defaults = [NSUserDefaults standardUserDefaults];
    if (defaults == nil) {
        return nullptr;
    }
    return std::unique_ptr<MacManagedPreferences>(new MacManagedPreferences([defaults retain]));
}

MacManagedPreferences::~MacManagedPreferences() {
    AutoreleasePool pool;
    [static_cast<NSUserDefaults*>(defaults_) release];
}

std::optional<PreferenceValue> MacManagedPreferences::forced(const std::string& key) const {
    AutoreleasePool pool;
    NSUserDefaults* defaults = static_cast<NSUserDefaults*>(defaults_);
    NSString* name = foundation::makeString(key);
    if (name == nil || ![defaults objectIsForcedForKey:name]) {
        return std::nullopt;
    }
    id value = [defaults objectForKey:name];
    return value != nil ? std::optional(valueOf(value)) : std::nullopt;
}

} // namespace varnoth
