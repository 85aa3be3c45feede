#include "app/QSettingsUserDefaults.h"

#include <QStringList>

namespace varnoth {

QSettingsUserDefaults::QSettingsUserDefaults(const std::string& domain)
    : settings_(QStringLiteral("Varnoth"), QString::fromStdString(domain)) {}

std::optional<std::string> QSettingsUserDefaults::string(const std::string& key) const {
    const QVariant value = settings_.value(QString::fromStdString(key));
    if (!value.isValid() || value.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    return value.toString().toStdString();
}

void QSettingsUserDefaults::setString(const std::string& key, const std::string& value) {
    settings_.setValue(QString::fromStdString(key), QString::fromStdString(value));
    settings_.sync();
}

std::optional<std::vector<std::string>> QSettingsUserDefaults::stringArray(const std::string& key) const {
    const QString name = QString::fromStdString(key);
    if (!settings_.contains(name)) {
        return std::nullopt;
    }
    const QVariant value = settings_.value(name);
    std::vector<std::string> result;
    // The INI format gives back a one-element list as plain text and an empty list as nothing.
    if (value.typeId() == QMetaType::QString) {
        result.push_back(value.toString().toStdString());
        return result;
    }
    if (!value.isValid()) {
        return result;
    }
    if (value.typeId() != QMetaType::QStringList && value.typeId() != QMetaType::QVariantList) {
        return std::nullopt;
    }
    for (const QVariant& element : value.toList()) {
        if (element.typeId() != QMetaType::QString) {
            return std::nullopt;
        }
        result.push_back(element.toString().toStdString());
    }
    return result;
}

void QSettingsUserDefaults::setStringArray(const std::string& key, const std::vector<std::string>& value) {
    QStringList list;
    for (const auto& element : value) {
        list.append(QString::fromStdString(element));
    }
    settings_.setValue(QString::fromStdString(key), list);
    settings_.sync();
}

// The native formats keep a real Boolean; the INI file gives it back as the text "true" or "false".
std::optional<bool> QSettingsUserDefaults::boolean(const std::string& key) const {
    const QVariant value = settings_.value(QString::fromStdString(key));
    if (value.typeId() == QMetaType::Bool) {
        return value.toBool();
    }
    return UserDefaults::boolean(key);
}

void QSettingsUserDefaults::setBoolean(const std::string& key, bool value) {
    settings_.setValue(QString::fromStdString(key), value);
    settings_.sync();
}

} // namespace varnoth
