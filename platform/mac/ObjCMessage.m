#import "platform/mac/ObjCMessage.h"

BOOL VarnothSendObjCMessage(id receiver, SEL selector, NSArray* arguments, id* result, NSString** failure) {
    *result = nil;
    *failure = nil;
    @try {
        NSMethodSignature* signature = [receiver methodSignatureForSelector:selector];
        if (signature == nil) {
            *failure = [NSString stringWithFormat:@"the object does not answer %s", sel_getName(selector)];
            return NO;
        }
        const NSUInteger count = [arguments count];
        if (count > 2 || [signature numberOfArguments] != count + 2) {
            *failure = [NSString stringWithFormat:@"%s does not take %lu arguments", sel_getName(selector),
                                                  (unsigned long)count];
            return NO;
        }
        id answer = nil;
        if (count == 0) {
            answer = [receiver performSelector:selector];
        } else if (count == 1) {
            answer = [receiver performSelector:selector withObject:[arguments objectAtIndex:0]];
        } else {
            answer = [receiver performSelector:selector
                                    withObject:[arguments objectAtIndex:0]
                                    withObject:[arguments objectAtIndex:1]];
        }
        // What a method without an object result leaves behind is no object.
        if ([signature methodReturnType][0] == '@') {
            *result = answer;
        }
        return YES;
    } @catch (NSException* exception) {
        // Errors raised by an AppleScript handler arrive here as exceptions. The agent tells the causes
        // apart by the AppleScript error number, so the text always ends in it when there is one.
        NSString* reason = [exception reason];
        id number = [[exception userInfo] objectForKey:@"NSAppleScriptErrorNumber"];
        if ([number isKindOfClass:[NSNumber class]] &&
            [reason rangeOfString:@"(error "].location == NSNotFound) {
            reason = [NSString stringWithFormat:@"%@ (error %ld)", reason, (long)[number longValue]];
        }
        *failure = [NSString stringWithFormat:@"%@: %@", [exception name], reason];
        return NO;
    }
}
