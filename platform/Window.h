#pragma once

namespace varnoth {

// A window of the agent's own (the apply and configuration dialogs), shown from the main thread.
class Window {
public:
    virtual ~Window() = default;
    virtual void center() = 0;
    virtual void setRestorable(bool restorable) = 0;
    virtual void show() = 0;
    virtual void close() = 0;
};

} // namespace varnoth
