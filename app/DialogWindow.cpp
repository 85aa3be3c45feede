#include "app/DialogWindow.h"

#include "app/WindowFrame.h"

#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>

namespace varnoth {

DialogWindow::DialogWindow() {
    WindowFrame::setDialogFlags(dialog_);
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
    // A window still open from the last update gets no show event, yet it must follow the new update.
    if (dialog_.isVisible()) {
        windowWillAppear();
    }
    dialog_.show();
    dialog_.raise();
    dialog_.activateWindow();
}

void DialogWindow::close() {
    dialog_.close();
}

bool DialogWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == &dialog_) {
        if (event->type() == QEvent::Polish) {
            // Once, before the first sizing or showing, when the subclass has laid out its form.
            WindowFrame::fit(dialog_);
        } else if (event->type() == QEvent::Show && !event->spontaneous()) {
            // Spontaneous show events come from the window system (a window restored from the Dock or
            // taskbar); only the agent's own showing counts as appearing.
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
