// The bundle's compiled script defines the class the agent sends its messages to, and an instance made
// as the agent makes it (alloc, no init) answers every one of the thirteen selectors. On a Mac this loads
// the built application's script, with no Outlook running: a handler renamed or mistyped in the script
// fails here instead of at a user's first update. Here the stand-in's bundle takes its place.
#include "outlook/AppleScriptProtocol.h"
#include "platform/mac/AppleScriptObjCHost.h"
#include "platform/mac/AutoreleasePool.h"

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>
#include <string>

namespace varnoth::test {
namespace {

TEST(ScriptClassTest, TheBundlesScriptClassAnswersEveryOperation) {
    auto host = AppleScriptObjCHost::Create(VARNOTH_TEST_SCRIPT_BUNDLE);
    ASSERT_TRUE(host) << VARNOTH_TEST_SCRIPT_BUNDLE;
    host->loadScripts();
    AutoreleasePool pool;
    Class scriptClass = NSClassFromString(@"OutlookScriptObj");
    ASSERT_NE(scriptClass, Nil);
    id object = [scriptClass alloc];
    ASSERT_NE(object, nil);
    for (const auto selector : AppleScriptProtocol::selectors) {
        EXPECT_TRUE([object respondsToSelector:sel_registerName(std::string(selector).c_str())]) << selector;
    }
    EXPECT_FALSE([object respondsToSelector:@selector(noSuchOperation:)]);
    [object release];
}

} // namespace
} // namespace varnoth::test
