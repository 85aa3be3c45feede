#pragma once

#include <plist/plist.h>
#include <utility>

namespace varnoth {

// Owns one libplist tree and frees it when it goes; moving passes the ownership on.
class PlistNode {
public:
    PlistNode() = default;
    explicit PlistNode(plist_t node) : node_(node) {}
    ~PlistNode() { reset(); }
    PlistNode(PlistNode&& other) noexcept : node_(other.release()) {}
    PlistNode& operator=(PlistNode&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    PlistNode(const PlistNode&) = delete;
    PlistNode& operator=(const PlistNode&) = delete;

    plist_t get() const { return node_; }
    explicit operator bool() const { return node_ != nullptr; }
    plist_t release() { return std::exchange(node_, nullptr); }
    void reset(plist_t node = nullptr) {
        if (node_ != nullptr) {
            plist_free(node_);
        }
        node_ = node;
    }

private:
    plist_t node_ = nullptr;
};

} // namespace varnoth
