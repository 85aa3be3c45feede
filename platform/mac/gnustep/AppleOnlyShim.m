#import "platform/mac/gnustep/AppleOnlyShim.h"

@interface AppleOnlyShimTextDescriptor : NSAppleEventDescriptor {
    NSString* text_;
}
@end

@implementation AppleOnlyShimTextDescriptor
- (id)initWithText:(NSString*)text {
    if ((self = [super init]) != nil) {
        text_ = [text copy];
    }
    return self;
}
- (void)dealloc {
    [text_ release];
    [super dealloc];
}
- (NSString*)stringValue {
    return text_;
}
@end

@implementation NSAppleEventDescriptor (AppleOnlyShim)
+ (NSAppleEventDescriptor*)descriptorWithString:(NSString*)text {
    return [[[AppleOnlyShimTextDescriptor alloc] initWithText:text] autorelease];
}
- (NSString*)stringValue {
    return nil;
}
@end

@implementation NSBundle (AppleOnlyShim)
- (void)loadAppleScriptObjectiveCScripts {
    ++AppleOnlyShimScriptLoads;
    [self load];
}
@end

@implementation NSUserDefaults (AppleOnlyShim)
- (BOOL)objectIsForcedForKey:(NSString*)key {
    return [[self volatileDomainForName:NSArgumentDomain] objectForKey:key] != nil;
}
@end

unsigned AppleOnlyShimScriptLoads = 0;

CFStringRef kAXTrustedCheckOptionPrompt = @"AXTrustedCheckOptionPrompt";

BOOL AXIsProcessTrustedWithOptions(CFDictionaryRef options) {
    return [[options objectForKey:kAXTrustedCheckOptionPrompt] boolValue];
}

CFStringRef SCDynamicStoreCopyComputerName(SCDynamicStoreRef store, CFStringEncoding* encoding) {
    (void)store;
    (void)encoding;
    return [[[NSProcessInfo processInfo] hostName] copy];
}

CFArrayRef LSCopyApplicationURLsForBundleIdentifier(CFStringRef identifier, CFErrorRef* error) {
    (void)identifier;
    (void)error;
    return nil;
}

CFIndex CFArrayGetCount(CFArrayRef array) {
    return (CFIndex)[array count];
}

void CFRelease(id object) {
    [object release];
}

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef domain) {
    return [[[[NSUserDefaults standardUserDefaults] persistentDomainForName:domain] objectForKey:key] retain];
}

BOOL CFPreferencesAppValueIsForced(CFStringRef key, CFStringRef domain) {
    (void)key;
    (void)domain;
    return NO;
}

OSStatus AECreateDesc(DescType type, const void* data, Size size, AEAddressDesc* result) {
    (void)data;
    (void)size;
    result->descriptorType = type;
    result->dataHandle = NULL;
    return noErr;
}

OSStatus AEDisposeDesc(AEAddressDesc* desc) {
    desc->dataHandle = NULL;
    return noErr;
}

OSStatus AEDeterminePermissionToAutomateTarget(const AEAddressDesc* target, AEEventClass eventClass,
                                               AEEventID eventID, BOOL askUserIfNeeded) {
    (void)target;
    (void)eventClass;
    (void)eventID;
    (void)askUserIfNeeded;
    return procNotFound;
}
