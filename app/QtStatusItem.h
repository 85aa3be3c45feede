#pragma once

#include "platform/StatusItem.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <filesystem>
#include <memory>

namespace varnoth {

// The tray icon with its menu, drawing the agent's menu model with Qt widgets.
class QtStatusItem final : public StatusItem {
public:
    explicit QtStatusItem(std::filesystem::path resourcesFolder);

    bool hasButton() const override { return true; }
    void setImage(const std::string& name) override;
    void setMenu(std::vector<MenuItem> items) override;
    void setChecked(std::size_t index, bool checked) override;
    void setToolTip(const std::string& text) override { tray_.setToolTip(QString::fromStdString(text)); }

    QMenu* menu() { return menu_.get(); }
    QSystemTrayIcon& trayIcon() { return tray_; }

private:
    QIcon icon(const std::string& name) const;

    std::filesystem::path resourcesFolder_;
    QSystemTrayIcon tray_;
    std::unique_ptr<QMenu> menu_;
    std::vector<QAction*> actions_;
    std::vector<MenuItem> items_;
};

} // namespace varnoth
