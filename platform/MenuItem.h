#pragma once

#include <functional>
#include <string>

namespace varnoth {

// One entry of the status item's menu, as the agent builds it; the desktop layer draws it.
struct MenuItem {
    enum class Kind { title, action, separator };

    Kind kind = Kind::action;
    std::string title;
    // Called on the main thread when the user chooses the item; empty for titles and separators.
    std::function<void()> action;
    bool checkable = false;
    bool checked = false;
    // An action the user cannot choose (one the administrator fixed) is shown disabled.
    bool enabled = true;

    static MenuItem separator() { return MenuItem{Kind::separator, {}, {}, false, false, true}; }
};

} // namespace varnoth
