#pragma once

#include "platform/mac/ManualReferenceCounting.h"

#import <Foundation/Foundation.h>

#ifdef __cplusplus
extern "C" {
#endif

// Sends one message with as many object arguments as the selector has colons (at most two) and catches
// whatever Objective-C exception the receiver raises, an unknown selector included. This is plain
// Objective-C on purpose: GCC's Objective-C++ cannot catch an Objective-C exception, so no @catch may
// live in a .mm file, and the boundary is as right on macOS.
//
// YES when the receiver answered; *result is then the returned object, or nil when the method returns
// no object. NO when it did not; *failure then says why (autoreleased).
BOOL VarnothSendObjCMessage(id receiver, SEL selector, NSArray* arguments, id* result, NSString** failure);

#ifdef __cplusplus
}
#endif
