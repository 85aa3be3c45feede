#pragma once

#include "platform/Window.h"

#include <QDialog>
#include <QObject>

class QEvent;

namespace varnoth {

// A modeless dialog window of the agent. It tells its subclass when the window is about to appear
// (each time it goes from hidden to shown, as a view controller hears it) and when the user presses
// Escape, so both go through the dialog's controller. It has one size, the one its form gives it with
// room for its title and button texts, and can be moved and closed but not maximised.
class DialogWindow : public QObject, public Window {
    Q_OBJECT

public:
    DialogWindow();
    ~DialogWindow() override;

    // The top-level widget that the form is laid out in.
    QDialog& dialog() { return dialog_; }
    const QDialog& dialog() const { return dialog_; }

    // Centres the window on the screen it is on (the primary screen before its first showing).
    void center() override;
    // Qt keeps no window state between sessions, so the flag is only remembered.
    void setRestorable(bool restorable) override { restorable_ = restorable; }
    bool restorable() const { return restorable_; }
    // Shows the window and brings it to the front; a window already shown only comes to the front.
    void show() override;
    void close() override;

protected:
    virtual void windowWillAppear() = 0;
    virtual void escapePressed() = 0;

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QDialog dialog_;
    bool restorable_ = false;
};

} // namespace varnoth
