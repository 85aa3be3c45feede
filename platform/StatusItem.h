#pragma once

#include "platform/MenuItem.h"

#include <cstddef>
#include <string>
#include <vector>

namespace varnoth {

// The agent's icon in the menu bar (tray) with its menu.
class StatusItem {
public:
    virtual ~StatusItem() = default;
    // Whether the item has a button that can show an image.
    virtual bool hasButton() const = 0;
    // Shows the bundle image of that name ("menu_icon", "menu_icon_progress").
    virtual void setImage(const std::string& name) = 0;
    virtual void setMenu(std::vector<MenuItem> items) = 0;
    // Sets the check mark of the menu entry at the index given to setMenu.
    virtual void setChecked(std::size_t index, bool checked) = 0;
    // The text shown when the pointer rests on the icon; an item without one ignores it.
    virtual void setToolTip(const std::string& text) { (void)text; }
};

} // namespace varnoth
