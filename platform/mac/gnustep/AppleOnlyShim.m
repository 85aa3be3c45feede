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
