#include "platform/mac/MacOutlookEnvironment.h"

#include "platform/mac/AutoreleasePool.h"

#ifdef __APPLE__
#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>
#else
#import "platform/mac/gnustep/AppleOnlyShim.h"
#endif

#include <cstring>

namespace varnoth {

namespace {

NSString* const outlookDomain = @"com.microsoft.Outlook";

// The domain's value of the key as the user and the administrator's profiles give it (retained copy).
id copyPreference(NSString* key) {
    return (id)CFPreferencesCopyAppValue((CFStringRef)key, (CFStringRef)outlookDomain);
}

} // namespace

std::optional<bool> MacOutlookEnvironment::installed() {
    AutoreleasePool pool;
    CFArrayRef found = LSCopyApplicationURLsForBundleIdentifier((CFStringRef)outlookDomain, nullptr);
    if (found == nullptr) {
        return false;
    }
    const bool any = CFArrayGetCount(found) > 0;
    CFRelease(found);
    return any;
}

std::optional<bool> MacOutlookEnvironment::runningNewOutlook() {
    AutoreleasePool pool;
    id value = copyPreference(@"IsRunningNewOutlook");
    std::optional<bool> result;
    if ([value isKindOfClass:[NSNumber class]]) {
        result = [value boolValue] != NO;
    }
    [value release];
    return result;
}

std::optional<long> MacOutlookEnvironment::managedEnableNewOutlook() {
    AutoreleasePool pool;
    if (!CFPreferencesAppValueIsForced((CFStringRef) @"EnableNewOutlook", (CFStringRef)outlookDomain)) {
        return std::nullopt;
    }
    id value = copyPreference(@"EnableNewOutlook");
    std::optional<long> result;
    if ([value isKindOfClass:[NSNumber class]]) {
        result = [value longValue];
    }
    [value release];
    return result;
}

OutlookEnvironment::Automation MacOutlookEnvironment::automation() {
    const char* identifier = bundleIdentifier;
    AEAddressDesc target;
    if (AECreateDesc(typeApplicationBundleID, identifier, static_cast<Size>(std::strlen(identifier)),
                     &target) != noErr) {
        return Automation::unknown;
    }
    // Never prompts: the prompt belongs to the first real event, when the user expects Outlook to move.
    const OSStatus status = AEDeterminePermissionToAutomateTarget(&target, typeWildCard, typeWildCard, false);
    AEDisposeDesc(&target);
    switch (status) {
    case noErr:
        return Automation::allowed;
    case errAEEventNotPermitted:
        return Automation::refused;
    case errAEEventWouldRequireUserConsent:
        return Automation::undecided;
    default: // procNotFound: Outlook is not running, so the system cannot tell
        return Automation::unknown;
    }
}

} // namespace varnoth
