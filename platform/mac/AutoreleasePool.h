#pragma once

#include "platform/mac/ManualReferenceCounting.h"

#import <Foundation/Foundation.h>

namespace varnoth {

// Drains what one call from C++ into Foundation autoreleased, also when it returns early. The C++
// side calls in from a run loop that Qt drives, so no pool of Foundation's may be there to catch them.
class AutoreleasePool {
public:
    AutoreleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
    ~AutoreleasePool() { [pool_ drain]; }
    AutoreleasePool(const AutoreleasePool&) = delete;
    AutoreleasePool& operator=(const AutoreleasePool&) = delete;

private:
    NSAutoreleasePool* pool_;
};

} // namespace varnoth
