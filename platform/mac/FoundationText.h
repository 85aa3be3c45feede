#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <string_view>

namespace varnoth::foundation {

// The bytes as an autoreleased NSString; nil when they are not UTF-8.
inline NSString* makeString(std::string_view text) {
    return [[[NSString alloc] initWithBytes:text.data() length:text.size()
                                   encoding:NSUTF8StringEncoding] autorelease];
}

// A Foundation value as UTF-8 text: empty text for nil and for anything that is not a string.
inline std::string utf8(id value) {
    if (![value isKindOfClass:[NSString class]]) {
        return {};
    }
    const char* bytes = [value UTF8String];
    return bytes != nullptr ? std::string(bytes) : std::string();
}

} // namespace varnoth::foundation
