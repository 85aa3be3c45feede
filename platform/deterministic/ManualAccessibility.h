#pragma once

#include "platform/Accessibility.h"

#include <map>
#include <vector>

namespace varnoth {

// The permission as a test sets it; deliver() plays the system's notification.
class ManualAccessibility final : public Accessibility {
public:
    bool isTrusted(bool prompt) override {
        prompts.push_back(prompt);
        return trusted;
    }
    Token addObserver(Observer observer) override {
        observers_[++lastToken_] = std::move(observer);
        return lastToken_;
    }
    void removeObserver(Token token) override { observers_.erase(token); }

    void deliver() {
        auto copy = observers_;
        for (auto& [token, observer] : copy) {
            observer();
        }
    }
    std::size_t observerCount() const { return observers_.size(); }

    bool trusted = true;
    std::vector<bool> prompts;

private:
    std::map<Token, Observer> observers_;
    Token lastToken_ = 0;
};

} // namespace varnoth
