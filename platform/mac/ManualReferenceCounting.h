#pragma once

// The macOS layer owns its Objective-C objects by hand (retain, release, autorelease pools), the only
// way GCC's Objective-C for the GNUstep tests knows; compiled with ARC its ownership would be wrong.
#if defined(__has_feature)
#if __has_feature(objc_arc)
#error "platform/mac uses manual reference counting: compile it with -fno-objc-arc"
#endif
#endif
