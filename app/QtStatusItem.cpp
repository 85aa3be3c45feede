#include "app/QtStatusItem.h"

#include <QCoreApplication>
#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>

namespace varnoth {

QtStatusItem::QtStatusItem(std::filesystem::path resourcesFolder)
    : resourcesFolder_(std::move(resourcesFolder)) {
    QCoreApplication::instance()->installEventFilter(this);
    tray_.setToolTip(QStringLiteral("Varnoth Brelvane Agent"));
#ifndef Q_OS_MACOS
    // A click opens the menu, as on a menu-bar icon; many Linux trays open it only on a right click.
    // (The Mac's status bar opens it on every click by itself.)
    QObject::connect(&tray_, &QSystemTrayIcon::activated, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && menu_ && !menu_->isVisible()) {
            menu_->popup(QCursor::pos());
        }
    });
#endif
}

bool QtStatusItem::darkPanel(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

bool QtStatusItem::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::ApplicationPaletteChange && watched == QCoreApplication::instance() &&
        !image_.empty()) {
        tray_.setIcon(icon(image_));
    }
    return QObject::eventFilter(watched, event);
}

QIcon QtStatusItem::icon(const std::string& name) const {
    std::vector<QPixmap> images;
    for (const char* suffix : {"", "@2x"}) {
        const auto path = resourcesFolder_ / (name + suffix + ".png");
        if (QPixmap image;
            std::filesystem::exists(path) && image.load(QString::fromStdString(path.string()))) {
            images.push_back(image);
        }
    }
    if (images.empty()) {
        // Without the bundle's images the tray still needs something to click.
        QPixmap pixmap(22, 22);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(Qt::black, 2));
        painter.drawRoundedRect(3, 5, 16, 12, 2, 2);
        if (name == "menu_icon_progress") {
            painter.setBrush(Qt::black);
            painter.drawEllipse(QPointF(11, 11), 3, 3);
        }
        images.push_back(pixmap);
    }
    QIcon result;
#ifdef Q_OS_MACOS
    for (const QPixmap& image : images) {
        result.addPixmap(image);
    }
    result.setIsMask(true); // a template image, which the menu bar tints for its own appearance
#else
    const bool light = darkPanel(QGuiApplication::palette());
    for (QPixmap image : images) {
        if (light) {
            // The same shape in white: the black one is nearly invisible on a dark panel.
            QPainter painter(&image);
            painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
            painter.fillRect(image.rect(), Qt::white);
        }
        result.addPixmap(image);
    }
#endif
    return result;
}

void QtStatusItem::setImage(const std::string& name) {
    image_ = name;
    tray_.setIcon(icon(name));
    // Shown even while there is no tray: Qt puts the icon into a tray that appears later, as one does
    // when the agent starts at login before the desktop's panel.
    tray_.show();
}

void QtStatusItem::setMenu(std::vector<MenuItem> items) {
    items_ = std::move(items);
    menu_ = std::make_unique<QMenu>();
    actions_.clear();
    for (std::size_t index = 0; index < items_.size(); ++index) {
        const MenuItem& item = items_[index];
        QAction* action = nullptr;
        if (item.kind == MenuItem::Kind::separator) {
            action = menu_->addSeparator();
        } else {
            action = menu_->addAction(QString::fromStdString(item.title));
            action->setEnabled(item.kind == MenuItem::Kind::action && item.enabled);
            action->setCheckable(item.checkable);
            action->setChecked(item.checked);
            if (item.action) {
                // The model decides the check mark; the action only reports the click.
                QObject::connect(action, &QAction::triggered, [this, index] {
                    if (items_[index].checkable) {
                        actions_[index]->setChecked(items_[index].checked);
                    }
                    items_[index].action();
                });
            }
        }
        actions_.push_back(action);
    }
    tray_.setContextMenu(menu_.get());
}

void QtStatusItem::setChecked(std::size_t index, bool checked) {
    if (index < items_.size()) {
        items_[index].checked = checked;
        actions_[index]->setChecked(checked);
    }
}

} // namespace varnoth
