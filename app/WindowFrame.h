#pragma once

class QPushButton;
class QWidget;

namespace varnoth {

// What makes one of the agent's windows look finished on any desktop: the title bar has room for the
// whole title beside the window's own buttons, every push button keeps a margin around its text, and a
// window whose content has one size offers no maximise button. Applied to the dialogs and the alerts.
class WindowFrame {
public:
    // What a title bar keeps beside the title: the window's buttons, its icon and the margins.
    static constexpr int titleBarReserve = 150;
    // The room on each side of a button's text.
    static constexpr int buttonTextMargin = 16;

    // The width a window needs for its whole title in the title bar.
    static int titleWidth(const QWidget& window);
    // The width a button needs for its text and margins.
    static int buttonWidth(const QPushButton& button);

    // Only moved and closed, never maximised nor minimised; set before the window is first shown. (A
    // message box has these already and keeps its own, which on macOS make it an alert.)
    static void setDialogFlags(QWidget& window);
    // Widens the window's layout to titleWidth and each of its push buttons to buttonWidth, once the
    // window holds its controls and title.
    static void fit(QWidget& window);
};

} // namespace varnoth
