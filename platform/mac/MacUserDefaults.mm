#include "platform/mac/MacUserDefaults.h"

#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"

namespace varnoth {

namespace {

using foundation::utf8;

// Keys and values arrive as UTF-8; anything else would be nil, which NSUserDefaults refuses.
NSString* makeString(const std::string& text) {
    NSString* value = foundation::makeString(text);
    return value != nil ? value : @"";
}

} // namespace

std::unique_ptr<MacUserDefaults> MacUserDefaults::Create() {
    AutoreleasePool pool;
    NSUserDefaults* defaults = [NSUserDefaults standardUserDefaults];
    if (defaults == nil) {
        return nullptr;
    }
    return std::unique_ptr<MacUserDefaults>(new MacUserDefaults([defaults retain]));
}

MacUserDefaults::~MacUserDefaults() {
    AutoreleasePool pool;
    [static_cast<NSUserDefaults*>(defaults_) release];
}

std::optional<std::string> MacUserDefaults::string(const std::string& key) const {
    AutoreleasePool pool;
    id value = [static_cast<NSUserDefaults*>(defaults_) objectForKey:makeString(key)];
    if (![value isKindOfClass:[NSString class]]) {
        return std::nullopt;
    }
    return utf8(value);
}

void MacUserDefaults::setString(const std::string& key, const std::string& value) {
    AutoreleasePool pool;
    NSUserDefaults* defaults = static_cast<NSUserDefaults*>(defaults_);
    [defaults setObject:makeString(value) forKey:makeString(key)];
    [defaults synchronize];
}

std::optional<std::vector<std::string>> MacUserDefaults::stringArray(const std::string& key) const {
    AutoreleasePool pool;
    id value = [static_cast<NSUserDefaults*>(defaults_) objectForKey:makeString(key)];
    if (![value isKindOfClass:[NSArray class]]) {
        return std::nullopt;
    }
    std::vector<std::string> result;
    for (NSUInteger index = 0; index < [value count]; ++index) {
        id element = [value objectAtIndex:index];
        if (![element isKindOfClass:[NSString class]]) {
            return std::nullopt;
        }
        result.push_back(utf8(element));
    }
    return result;
}

void MacUserDefaults::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    AutoreleasePool pool;
    NSMutableArray* array = [NSMutableArray arrayWithCapacity:value.size()];
    for (const auto& element : value) {
        [array addObject:makeString(element)];
    }
    NSUserDefaults* defaults = static_cast<NSUserDefaults*>(defaults_);
    [defaults setObject:array forKey:makeString(key)];
    [defaults synchronize];
}

} // namespace varnoth
