// Stands in, in a loadable bundle, for the compiled Outlook script: the thirteen handlers record each
// message (selector and argument texts) and those with a result answer with that same line. An
// argument "raise" makes a handler raise, as a failing AppleScript handler does; a last argument "nil"
// makes it answer nothing. ScriptRecord hands the record over; released objects sign off in it.
// RaisingScriptObj raises at alloc, as a script class whose code fails does.
#import <Foundation/Foundation.h>

static NSMutableArray* record;

@interface OutlookScriptObj : NSObject {
    unsigned messages_;
}
@end

@implementation OutlookScriptObj
- (id)answer:(SEL)selector with:(NSArray*)arguments {
    NSMutableString* line = [NSMutableString stringWithUTF8String:sel_getName(selector)];
    for (NSUInteger index = 0; index < [arguments count]; ++index) {
        NSString* text = [[arguments objectAtIndex:index] stringValue];
        if ([text isEqual:@"raise"]) {
            [NSException raise:@"OSAScriptErrorNumber" format:@"Outlook got an error"];
        }
        [line appendFormat:@" %@", text];
    }
    ++messages_;
    if (record == nil) {
        record = [[NSMutableArray alloc] init];
    }
    [record addObject:line];
    return [line hasSuffix:@" nil"] ? nil : line;
}
- (void)dealloc {
    [record addObject:[NSString stringWithFormat:@"released after %u", messages_]];
    [super dealloc];
}
// A handler with a result answers its line; one without only records it.
#define ANSWERS(signature, arguments)                                                                        \
    -(id)signature {                                                                                         \
        return [self answer:_cmd with:arguments];                                                            \
    }
#define RECORDS(signature, arguments)                                                                        \
    -(void)signature {                                                                                       \
        [self answer:_cmd with:arguments];                                                                   \
    }
#define ONE(argument) [NSArray arrayWithObject:argument]
ANSWERS(getDefaultAccount, nil)
ANSWERS(getSignature : (id)name, ONE(name))
RECORDS(applySignaturesFor : (id)account, ONE(account))
RECORDS(applyDefaultNewSignatureFor : (id)account, ONE(account))
RECORDS(applyDefaultReplySignatureFor : (id)account, ONE(account))
RECORDS(applyNoneSignaturesFor : (id)account, ONE(account))
RECORDS(applyNoneDefaultNewSignatureFor : (id)account, ONE(account))
RECORDS(applyNoneDefaultReplySignatureFor : (id)account, ONE(account))
RECORDS(deleteSignatures, nil)
RECORDS(deleteSignature : (id)name, ONE(name))
RECORDS(createSignature : (id)name content : (id)content, ([NSArray arrayWithObjects:name, content, nil]))
ANSWERS(getVersion, nil)
ANSWERS(getSignatureNames, nil)
@end

@interface ScriptRecord : NSObject
@end

@implementation ScriptRecord
+ (id)take {
    NSString* text = [record componentsJoinedByString:@"\n"];
    [record removeAllObjects];
    return text;
}
@end

@interface RaisingScriptObj : NSObject
@end

@implementation RaisingScriptObj
+ (id)alloc {
    [NSException raise:@"OSAScriptErrorNumber" format:@"the script class failed"];
    return nil;
}
@end
