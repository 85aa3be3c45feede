#pragma once

#include "platform/Accessibility.h"

#include <map>
#include <memory>

namespace varnoth {

// The accessibility permission as macOS grants it: AXIsProcessTrustedWithOptions with the prompt
// option, and the distributed notification "com.apple.accessibility.api" that the system posts when
// the permission list changes.
//
// Ownership and threads: one Objective-C observer, owned here, stands on the default distributed
// notification center while any observer is added; registered from the main thread without a queue,
// it is delivered on the main run loop, where the observers are called, and at once even while the
// agent is not the active application. Remove every observer (or destroy this object) on the main
// thread, before the observers' captures go away.
class MacAccessibility final : public Accessibility {
public:
    // Nothing when the observer object cannot be made.
    static std::unique_ptr<MacAccessibility> Create();
    ~MacAccessibility() override;

    bool isTrusted(bool prompt) override;
    Token addObserver(Observer observer) override;
    void removeObserver(Token token) override;

    // Called by the Objective-C observer at each delivery.
    void notify();

private:
    explicit MacAccessibility(void* observer) : observer_(observer) {}
    void* observer_; // VarnothAccessibilityObserver*, owned
    bool registered_ = false;
    Token lastToken_ = 0;
    std::map<Token, Observer> observers_;
};

} // namespace varnoth
