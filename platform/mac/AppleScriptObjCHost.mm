#include "platform/mac/AppleScriptObjCHost.h"

#include "base/Logger.h"
#include "platform/mac/AutoreleasePool.h"
#include "platform/mac/FoundationText.h"
#import "platform/mac/ObjCMessage.h"

#ifdef __APPLE__
#import <AppleScriptObjC/AppleScriptObjC.h>
#import <Foundation/Foundation.h>
#else
#import "platform/mac/gnustep/AppleOnlyShim.h"
#endif

namespace varnoth {

namespace {

using foundation::makeString;
using foundation::utf8;

class AppleScriptObjCObject final : public ScriptObject {
public:
    explicit AppleScriptObjCObject(id object) : object_(object) {}
    ~AppleScriptObjCObject() override {
        AutoreleasePool pool; // the object's dealloc may autorelease
        [object_ release];
    }
    AppleScriptObjCObject(const AppleScriptObjCObject&) = delete;
    AppleScriptObjCObject& operator=(const AppleScriptObjCObject&) = delete;

    ScriptReply send(std::string_view selector, const std::vector<std::string>& arguments) override {
        AutoreleasePool pool;
        NSString* name = makeString(selector);
        if (name == nil || selector.empty()) {
            return ScriptReply::failed("invalid selector");
        }
        NSMutableArray* descriptors = [NSMutableArray arrayWithCapacity:arguments.size()];
        for (const auto& argument : arguments) {
            NSString* text = makeString(argument);
            if (text == nil) {
                return ScriptReply::failed("argument is not UTF-8");
            }
            [descriptors addObject:[NSAppleEventDescriptor descriptorWithString:text]];
        }
        id result = nil;
        NSString* failure = nil;
        if (!VarnothSendObjCMessage(object_, NSSelectorFromString(name), descriptors, &result, &failure)) {
            return ScriptReply::failed(utf8(failure));
        }
        if ([result isKindOfClass:[NSString class]]) {
            return ScriptReply::withText(utf8(result));
        }
        if ([result isKindOfClass:[NSAppleEventDescriptor class]] && [result stringValue] != nil) {
            return ScriptReply::withText(utf8([result stringValue]));
        }
        return ScriptReply::nothing();
    }

private:
    id object_;
};

} // namespace

std::unique_ptr<AppleScriptObjCHost> AppleScriptObjCHost::Create(const std::filesystem::path& bundlePath) {
    AutoreleasePool pool;
    NSBundle* bundle = bundlePath.empty() ? [NSBundle mainBundle]
                                          : [NSBundle bundleWithPath:makeString(bundlePath.string())];
    if (bundle == nil || ![bundle respondsToSelector:@selector(loadAppleScriptObjectiveCScripts)]) {
        return nullptr;
    }
    return std::unique_ptr<AppleScriptObjCHost>(new AppleScriptObjCHost([bundle retain]));
}

AppleScriptObjCHost::~AppleScriptObjCHost() {
    AutoreleasePool pool;
    [static_cast<NSBundle*>(bundle_) release];
}

void AppleScriptObjCHost::loadScripts() {
    if (loaded_) {
        return;
    }
    loaded_ = true;
    AutoreleasePool pool;
    NSBundle* bundle = static_cast<NSBundle*>(bundle_);
    id result = nil;
    NSString* failure = nil;
    // A script that cannot be loaded leaves its class undefined, and every operation fails on its own;
    // the line says why once, where an administrator looks first.
    if (!VarnothSendObjCMessage(bundle, @selector(loadAppleScriptObjectiveCScripts), [NSArray array], &result,
                                &failure)) {
        Logger::log("Error: cannot load the scripts of " + utf8([bundle bundlePath]) + ": " + utf8(failure));
    } else if ([[bundle pathsForResourcesOfType:@"scpt" inDirectory:nil] count] == 0) {
        Logger::log("Error: cannot load the scripts of " + utf8([bundle bundlePath]) +
                    ": it holds no compiled script");
    }
}

std::unique_ptr<ScriptObject> AppleScriptObjCHost::makeObject(std::string_view className) {
    loadScripts();
    AutoreleasePool pool;
    NSString* name = makeString(className);
    Class scriptClass = name != nil && !className.empty() ? NSClassFromString(name) : Nil;
    if (scriptClass == Nil) {
        return nullptr;
    }
    // alloc runs the script's class code, which may raise like any handler.
    id object = nil;
    NSString* failure = nil;
    if (!VarnothSendObjCMessage(scriptClass, @selector(alloc), [NSArray array], &object, &failure)) {
        Logger::log("Error: cannot make a " + std::string(className) + ": " + utf8(failure));
        return nullptr;
    }
    if (object == nil) {
        return nullptr;
    }
    if (![object conformsToProtocol:@protocol(NSObject)]) {
        [object release];
        return nullptr;
    }
    return std::make_unique<AppleScriptObjCObject>(object);
}

} // namespace varnoth
