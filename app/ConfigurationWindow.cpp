#include "app/ConfigurationWindow.h"

#include "ui_ConfigurationWindow.h"

namespace varnoth {

ConfigurationWindow::ConfigurationWindow()
    : ui_(std::make_unique<Ui::ConfigurationWindow>()), controller_(this) {
    ui_->setupUi(&dialog());
    ui_->hintLabel->hide(); // shown only while OK waits for an "@"
    // Only the user's own actions reach the controller: the controller's own changes to the box and the
    // field emit clicked and textEdited no more than the platform's actions would fire.
    QObject::connect(ui_->emailCheckbox, &QCheckBox::clicked, this,
                     [this] { controller_.useEmailChanged(); });
    QObject::connect(ui_->emailInput, &QLineEdit::textEdited, this,
                     [this] { controller_.controlTextDidChange(); });
    QObject::connect(ui_->okButton, &QPushButton::clicked, this, [this] { controller_.submit(); });
    QObject::connect(ui_->cancelButton, &QPushButton::clicked, this, [this] { controller_.cancel(); });
}

ConfigurationWindow::~ConfigurationWindow() = default;

std::string ConfigurationWindow::emailText() const {
    return ui_->emailInput->text().toStdString();
}

void ConfigurationWindow::setEmailText(const std::string& text) {
    ui_->emailInput->setText(QString::fromStdString(text));
}

void ConfigurationWindow::setEmailInputEnabled(bool enabled) {
    ui_->emailInput->setEnabled(enabled);
}

ConfigurationView::CheckState ConfigurationWindow::checkboxState() const {
    switch (ui_->emailCheckbox->checkState()) {
    case Qt::Checked:
        return CheckState::on;
    case Qt::PartiallyChecked:
        return CheckState::mixed;
    case Qt::Unchecked:
        break;
    }
    return CheckState::off;
}

void ConfigurationWindow::setCheckboxState(CheckState state) {
    switch (state) {
    case CheckState::on:
        ui_->emailCheckbox->setCheckState(Qt::Checked);
        return;
    case CheckState::mixed:
        ui_->emailCheckbox->setCheckState(Qt::PartiallyChecked);
        return;
    case CheckState::off:
        break;
    }
    ui_->emailCheckbox->setCheckState(Qt::Unchecked);
}

void ConfigurationWindow::setCheckboxEnabled(bool enabled) {
    ui_->emailCheckbox->setEnabled(enabled);
}

void ConfigurationWindow::setOkButtonEnabled(bool enabled) {
    ui_->okButton->setEnabled(enabled);
}

void ConfigurationWindow::setExplanation(const std::string& text) {
    ui_->explanationLabel->setText(QString::fromStdString(text));
}

void ConfigurationWindow::setHint(const std::string& text) {
    ui_->hintLabel->setText(QString::fromStdString(text));
    ui_->hintLabel->setVisible(!text.empty());
}

} // namespace varnoth
