#pragma once

#include "platform/StatusItem.h"

#include <algorithm>
#include <stdexcept>

namespace varnoth {

// Records what the agent shows in the menu bar; choose() plays a click on a menu entry.
class RecordingStatusItem final : public StatusItem {
public:
    bool hasButton() const override { return button; }
    void setImage(const std::string& name) override { images.push_back(name); }
    void setMenu(std::vector<MenuItem> items) override { menu = std::move(items); }
    void setChecked(std::size_t index, bool checked) override { menu.at(index).checked = checked; }
    void setToolTip(const std::string& text) override { toolTip = text; }

    // The titles in menu order, "-" for a separator.
    std::vector<std::string> titles() const {
        std::vector<std::string> result;
        for (const auto& item : menu) {
            result.push_back(item.kind == MenuItem::Kind::separator ? "-" : item.title);
        }
        return result;
    }
    MenuItem& item(const std::string& title) {
        const auto found = std::find_if(menu.begin(), menu.end(),
                                        [&](const MenuItem& entry) { return entry.title == title; });
        return found != menu.end() ? *found : throw std::out_of_range("no menu item " + title);
    }
    // A disabled entry does nothing, as in a real menu.
    void choose(const std::string& title) {
        if (item(title).enabled) {
            item(title).action();
        }
    }

    bool button = true;
    std::vector<std::string> images;
    std::vector<MenuItem> menu;
    std::string toolTip;
};

} // namespace varnoth
