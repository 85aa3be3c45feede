#include "app/ApplyWindow.h"

#include "ui_ApplyWindow.h"

namespace varnoth {

ApplyWindow::ApplyWindow() : ui_(std::make_unique<Ui::ApplyWindow>()), controller_(this) {
    ui_->setupUi(&dialog());
    QObject::connect(ui_->autoConfigureButton, &QPushButton::clicked, this,
                     [this] { controller_.applyTapped(); });
    QObject::connect(ui_->closeButton, &QPushButton::clicked, this, [this] { controller_.closeTapped(); });
}

ApplyWindow::~ApplyWindow() = default;

void ApplyWindow::setMessage(const std::string& text) {
    ui_->messageView->setText(QString::fromStdString(text));
}

void ApplyWindow::setConfigureButtonHidden(bool hidden) {
    ui_->autoConfigureButton->setHidden(hidden);
}

} // namespace varnoth
