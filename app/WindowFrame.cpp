#include "app/WindowFrame.h"

#include <QApplication>
#include <QBoxLayout>
#include <QFontMetrics>
#include <QGridLayout>
#include <QPushButton>
#include <QSpacerItem>

namespace varnoth {

int WindowFrame::titleWidth(const QWidget& window) {
    // Window managers draw titles in bold more often than not; the wider estimate is the safe one.
    QFont font = QApplication::font();
    font.setBold(true);
    return QFontMetrics(font).horizontalAdvance(window.windowTitle()) + titleBarReserve;
}

int WindowFrame::buttonWidth(const QPushButton& button) {
    return button.fontMetrics().horizontalAdvance(button.text()) + 2 * buttonTextMargin;
}

void WindowFrame::setDialogFlags(QWidget& window) {
    window.setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint | Qt::CustomizeWindowHint |
                          Qt::WindowTitleHint | Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
}

void WindowFrame::fit(QWidget& window) {
    for (QPushButton* button : window.findChildren<QPushButton*>()) {
        button->setMinimumWidth(buttonWidth(*button));
    }
    QLayout* layout = window.layout();
    if (layout == nullptr) {
        window.setMinimumWidth(titleWidth(window));
        return;
    }
    const QMargins margins = layout->contentsMargins();
    const int width = titleWidth(window) - margins.left() - margins.right();
    if (auto* box = qobject_cast<QVBoxLayout*>(layout)) {
        box->addStrut(width);
    } else if (auto* grid = qobject_cast<QGridLayout*>(layout)) {
        // A message box's own layout: an empty item across the first row widens it without adding a row.
        grid->addItem(new QSpacerItem(width, 0, QSizePolicy::Fixed, QSizePolicy::Minimum), 0, 0, 1,
                      grid->columnCount());
    } else {
        window.setMinimumWidth(titleWidth(window));
    }
}

} // namespace varnoth
