#pragma once

#include "platform/ScriptHost.h"

#include <filesystem>
#include <memory>

namespace varnoth {

// The Outlook script in-process, as AppleScriptObjC runs it: loadScripts has the bundle load its
// compiled scripts, once for the life of the host (AppleScriptObjC defines each script class once, and
// a second load would define them again), and before the first class lookup at the latest; a load
// that fails says why in one log line. makeObject finds the class by name and allocates an instance
// (no init: the script class needs none), and each message carries its texts as
// NSAppleEventDescriptor arguments and gives back an NSString or nothing. An exception raised by
// alloc, by a handler (an AppleScript error) or for a selector the object does not answer fails that
// step only; none reaches the event loop.
//
// Ownership and threads: the host retains its bundle for its own life; each object it makes holds the
// one reference that alloc gave and releases it when destroyed. Use the host and its objects on the
// main thread, which AppleScript and Outlook's Apple events expect; every call drains its own
// autorelease pool, so callers need none.
class AppleScriptObjCHost final : public ScriptHost {
public:
    // The main bundle's scripts, or those of the bundle at an absolute path; nothing when there is no
    // such bundle or the process cannot load AppleScriptObjC scripts.
    static std::unique_ptr<AppleScriptObjCHost> Create(const std::filesystem::path& bundlePath = {});
    ~AppleScriptObjCHost() override;

    void loadScripts() override;
    std::unique_ptr<ScriptObject> makeObject(std::string_view className) override;

private:
    explicit AppleScriptObjCHost(void* bundle) : bundle_(bundle) {}
    void* bundle_; // NSBundle*, retained
    bool loaded_ = false;
};

} // namespace varnoth
