#pragma once

// Stands in for the Apple-only calls of the macOS layer when it is built against GNUstep's Foundation
// for its Linux tests; the macOS build compiles the real ones. Never part of an agent that ships.

#import <Foundation/Foundation.h>

// GNUstep's NSAppleEventDescriptor is an empty class: a descriptor made from text holds that text.
@interface NSAppleEventDescriptor (AppleOnlyShim)
+ (NSAppleEventDescriptor*)descriptorWithString:(NSString*)text;
- (NSString*)stringValue;
@end

// AppleScriptObjC loads a bundle's compiled scripts; here the bundle's code defines the script classes.
// The tests count the loads.
@interface NSBundle (AppleOnlyShim)
- (void)loadAppleScriptObjectiveCScripts;
@end

// GNUstep has no managed preferences: the values of the argument domain, which win over the user's own
// as forced ones do, count as forced.
@interface NSUserDefaults (AppleOnlyShim)
- (BOOL)objectIsForcedForKey:(NSString*)key;
@end

// The accessibility API. The shim answers as if the user granted the permission at the prompt:
// trusted exactly when the options ask for the prompt, so a test sees the option arrive.
#ifdef __cplusplus
extern "C" {
#endif
typedef NSDictionary* CFDictionaryRef;
typedef NSString* CFStringRef;
extern unsigned AppleOnlyShimScriptLoads; // loadAppleScriptObjectiveCScripts messages so far
extern CFStringRef kAXTrustedCheckOptionPrompt;
BOOL AXIsProcessTrustedWithOptions(CFDictionaryRef options);

// The system configuration's computer name: here the host's name, retained as the Copy rule says.
typedef const void* SCDynamicStoreRef;
typedef unsigned int CFStringEncoding;
CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* encoding);

// Launch Services, the preferences of other applications' domains and the automation permission:
// Outlook is never installed here, its preferences are the user's defaults of its domain and nothing
// is enforced, and the permission cannot be told (as when Outlook is not running).
typedef NSArray* CFArrayRef;
typedef id CFPropertyListRef;
typedef id CFErrorRef;
typedef long CFIndex;
typedef int OSStatus;
typedef long Size;
typedef unsigned int DescType;
typedef unsigned int AEEventClass;
typedef unsigned int AEEventID;
typedef struct {
    DescType descriptorType;
    void* dataHandle;
} AEAddressDesc;
enum {
    noErr = 0,
    procNotFound = -600,
    errAEEventNotPermitted = -1743,
    errAEEventWouldRequireUserConsent = -1744,
    typeApplicationBundleID = 0x62756e64, // 'bund'
    typeWildCard = 0x2a2a2a2a,            // '****'
};
CFArrayRef LSCopyApplicationURLsForBundleIdentifier(CFStringRef identifier, CFErrorRef* error);
CFIndex CFArrayGetCount(CFArrayRef array);
void CFRelease(id object);
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef domain);
BOOL CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef domain);
OSStatus AECreateDesc(DescType type, const void* data, Size size, AEAddressDesc* result);
OSStatus AEDisposeDesc(AEAddressDesc* desc);
OSStatus AEDeterminePermissionToAutomateTarget(const AEAddressDesc* target, AEEventClass eventClass,
                                               AEEventID eventID, BOOL askUserIfNeeded);

#ifdef __cplusplus
}
#endif
