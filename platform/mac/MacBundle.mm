#include "platform/mac/MacBundle.h"

#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"

namespace varnoth {

namespace {

// A missing value, or one that is not text, reads as empty text.
std::string text(id value) {
    return foundation::utf8(value);
}

} // namespace

std::optional<MacBundle> MacBundle::Create() {
    AutoreleasePool pool;
    if ([NSBundle mainBundle] == nil) {
        return std::nullopt;
    }
    return MacBundle();
}

BundleInfo MacBundle::info() const {
    AutoreleasePool pool;
    NSBundle* bundle = [NSBundle mainBundle];
    BundleInfo info;
    info.name = text([bundle objectForInfoDictionaryKey:@"CFBundleName"]);
    info.displayName = text([bundle objectForInfoDictionaryKey:@"CFBundleDisplayName"]);
    if (info.displayName.empty()) {
        info.displayName = info.name; // as Finder shows a bundle without a display name
    }
    info.identifier = text([bundle bundleIdentifier]);
    info.shortVersion = text([bundle objectForInfoDictionaryKey:@"CFBundleShortVersionString"]);
    info.version = text([bundle objectForInfoDictionaryKey:@"CFBundleVersion"]);
    info.resourcesFolder = text([bundle resourcePath]);
    info.executablePath = text([bundle executablePath]);
    return info;
}

} // namespace varnoth
