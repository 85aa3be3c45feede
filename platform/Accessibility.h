#pragma once

#include <functional>

namespace varnoth {

// The accessibility permission that Outlook's GUI scripting needs.
class Accessibility {
public:
    using Observer = std::function<void()>;
    using Token = int;

    // The system's notification that the permission list changed.
    static constexpr const char* notificationName = "com.apple.accessibility.api";

    virtual ~Accessibility() = default;
    // Whether the process is trusted; with prompt, the system asks the user to grant it.
    virtual bool isTrusted(bool prompt) = 0;
    // Calls the observer on the main thread at each delivery of the notification.
    virtual Token addObserver(Observer observer) = 0;
    virtual void removeObserver(Token token) = 0;
};

} // namespace varnoth
