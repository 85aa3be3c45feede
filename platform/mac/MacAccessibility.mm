#include "platform/mac/MacAccessibility.h"

#include "platform/mac/AutoreleasePool.h"

#ifdef __APPLE__
#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>
#else
#import "platform/mac/gnustep/AppleOnlyShim.h"
#endif

@interface VarnothAccessibilityObserver : NSObject {
    varnoth::MacAccessibility* owner_;
}
- (id)initWithOwner:(varnoth::MacAccessibility*)owner;
- (void)permissionChanged:(NSNotification*)notification;
@end

@implementation VarnothAccessibilityObserver
- (id)initWithOwner:(varnoth::MacAccessibility*)owner {
    if ((self = [super init]) != nil) {
        owner_ = owner;
    }
    return self;
}
- (void)permissionChanged:(NSNotification*)notification {
    (void)notification;
    owner_->notify();
}
@end

namespace varnoth {

namespace {

NSNotificationCenter* distributedCenter() {
#ifdef __APPLE__
    return [NSDistributedNotificationCenter defaultCenter];
#else
    // GNUstep's distributed center would start its gdnc daemon; the tests post to the local one.
    return [NSNotificationCenter defaultCenter];
#endif
}

NSString* accessibilityNotification() {
    return [NSString stringWithUTF8String:Accessibility::notificationName];
}

void observe(id observer) {
#ifdef __APPLE__
    // The application holds distributed notifications back while it is not the active one, which an
    // agent without a Dock icon seldom is; the permission must start the engine at once.
    [[NSDistributedNotificationCenter defaultCenter]
               addObserver:observer
                  selector:@selector(permissionChanged:)
                      name:accessibilityNotification()
                    object:nil
        suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
#else
    [distributedCenter() addObserver:observer
                            selector:@selector(permissionChanged:)
                                name:accessibilityNotification()
                              object:nil];
#endif
}

} // namespace

std::unique_ptr<MacAccessibility> MacAccessibility::Create() {
    AutoreleasePool pool;
    auto accessibility = std::unique_ptr<MacAccessibility>(new MacAccessibility(nullptr));
    VarnothAccessibilityObserver* observer =
        [[VarnothAccessibilityObserver alloc] initWithOwner:accessibility.get()];
    if (observer == nil) {
        return nullptr;
    }
    accessibility->observer_ = observer;
    return accessibility;
}

MacAccessibility::~MacAccessibility() {
    AutoreleasePool pool;
    if (registered_) {
        [distributedCenter() removeObserver:static_cast<id>(observer_)];
    }
    [static_cast<id>(observer_) release];
}

bool MacAccessibility::isTrusted(bool prompt) {
    AutoreleasePool pool;
    NSDictionary* options = [NSDictionary dictionaryWithObject:[NSNumber numberWithBool:prompt ? YES : NO]
                                                        forKey:(id)kAXTrustedCheckOptionPrompt];
    return AXIsProcessTrustedWithOptions((CFDictionaryRef)options);
}

Accessibility::Token MacAccessibility::addObserver(Observer observer) {
    AutoreleasePool pool;
    if (!registered_) {
        observe(static_cast<id>(observer_));
        registered_ = true;
    }
    observers_[++lastToken_] = std::move(observer);
    return lastToken_;
}

void MacAccessibility::removeObserver(Token token) {
    AutoreleasePool pool;
    observers_.erase(token);
    if (observers_.empty() && registered_) {
        [distributedCenter() removeObserver:static_cast<id>(observer_)
                                       name:accessibilityNotification()
                                     object:nil];
        registered_ = false;
    }
}

void MacAccessibility::notify() {
    AutoreleasePool pool;
    // An observer may remove itself (the engine start does); call a copy.
    const auto current = observers_;
    for (const auto& [token, observer] : current) {
        observer();
    }
}

} // namespace varnoth
