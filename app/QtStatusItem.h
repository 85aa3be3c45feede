#pragma once

#include "platform/StatusItem.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <filesystem>
#include <memory>

namespace varnoth {

// The tray icon with its menu, drawing the agent's menu model with Qt widgets. The images are black
// shapes: on macOS template images that the menu bar tints itself, elsewhere drawn light on a dark panel.
class QtStatusItem final : public QObject, public StatusItem {
public:
    explicit QtStatusItem(std::filesystem::path resourcesFolder);

    bool hasButton() const override { return true; }
    void setImage(const std::string& name) override;
    void setMenu(std::vector<MenuItem> items) override;
    void setChecked(std::size_t index, bool checked) override;
    void setToolTip(const std::string& text) override { tray_.setToolTip(QString::fromStdString(text)); }

    QMenu* menu() { return menu_.get(); }
    QSystemTrayIcon& trayIcon() { return tray_; }
    // Qt's palette is the one hint of the panel's colour a tray icon gets: a dark window colour means a
    // dark panel.
    static bool darkPanel(const QPalette& palette);

protected:
    // Follows a change of the palette (a switch to or from a dark theme) with the other variant.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QIcon icon(const std::string& name) const;

    std::filesystem::path resourcesFolder_;
    QSystemTrayIcon tray_;
    std::unique_ptr<QMenu> menu_;
    std::vector<QAction*> actions_;
    std::vector<MenuItem> items_;
    std::string image_;
};

} // namespace varnoth
