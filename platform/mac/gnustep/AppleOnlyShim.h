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

#ifdef __cplusplus
}
#endif
