#include "app/DialogWindow.h"

#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>

namespace varnoth {

DialogWindow::DialogWindow() {
    dialog_.installEventFilter(this);
}

DialogWindow::~DialogWindow() {
    dialog_.removeEventFilter(this);
}

void DialogWindow::center() {
    dialog_.adjustSize();
    QScreen* screen = dialog_.screen();
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    if (screen == nullptr) {
        return;
    }
    QRect frame = dialog_.frameGeometry();
    frame.moveCenter(screen->availableGeometry().center());
    dialog_.move(frame.topLeft());
}

void DialogWindow::show() {
    dialog_.show();
    dialog_.raise();
    dialog_.activateWindow();
}

void DialogWindow::close() {
    dialog_.close();
}

bool DialogWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == &dialog_) {
        // Spontaneous show events come from the window system (a window restored from the Dock or
        // taskbar); only the agent's own showing counts as appearing.
        if (event->type() == QEvent::Show && !event->spontaneous()) {
            windowWillAppear();
        } else if (event->type() == QEvent::KeyPress &&
                   static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
            escapePressed();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

} // namespace varnoth
