// Stands in, in a loadable bundle, for the compiled Outlook script: the twelve handlers record each
// message (selector and argument texts) and those with a result answer with that same line. An
// argument "raise" makes a handler raise, as a failing AppleScript handler does; "nil" makes it answer
// nothing. ScriptRecord hands the record over; released objects sign off in it.
#import <Foundation/Foundation.h>

static NSMutableArray* record;

@interface OutlookScriptObj : NSObject {
    unsigned messages_;
}
@end

@implementation OutlookScriptObj
- (id)answer:(SEL)selector with:(NSArray*)arguments {
    NSMutableString* line = [NSMutableString stringWithUTF8String:sel_getName(selector)];
    BOOL nothing = NO;
    for (NSUInteger index = 0; index < [arguments count]; ++index) {
        NSString* text = [[arguments objectAtIndex:index] stringValue];
        if ([text isEqual:@"raise"]) {
            [NSException raise:@"OSAScriptErrorNumber" format:@"Outlook got an error"];
        }
        nothing = nothing || [text isEqual:@"nil"];
        [line appendFormat:@" %@", text];
    }
    ++messages_;
    if (record == nil) {
        record = [[NSMutableArray alloc] init];
    }
    [record addObject:line];
    return nothing ? nil : line;
}
- (void)dealloc {
    [record addObject:[NSString stringWithFormat:@"released after %u", messages_]];
    [super dealloc];
}
- (id)getDefaultAccount {
    return [self answer:_cmd with:nil];
}
- (id)getSignature:(id)name {
    return [self answer:_cmd with:[NSArray arrayWithObject:name]];
}
- (void)applySignaturesFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)applyDefaultNewSignatureFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)applyDefaultReplySignatureFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)applyNoneSignaturesFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)applyNoneDefaultNewSignatureFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)applyNoneDefaultReplySignatureFor:(id)account {
    [self answer:_cmd with:[NSArray arrayWithObject:account]];
}
- (void)deleteSignatures {
    [self answer:_cmd with:nil];
}
- (void)deleteSignature:(id)name {
    [self answer:_cmd with:[NSArray arrayWithObject:name]];
}
- (void)createSignature:(id)name content:(id)content {
    [self answer:_cmd with:[NSArray arrayWithObjects:name, content, nil]];
}
- (id)getVersion {
    return [self answer:_cmd with:nil];
}
@end

@interface ScriptRecord : NSObject
@end

@implementation ScriptRecord
- (id)take {
    NSString* text = [record componentsJoinedByString:@"\n"];
    [record removeAllObjects];
    return text;
}
@end
