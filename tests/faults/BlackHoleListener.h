#pragma once

#include "tests/support/LoopbackListener.h"

#include <vector>

namespace varnoth::test {

// A listening socket on 127.0.0.1 whose backlog is full: connection attempts get no answer at all, the
// way a black-hole address behaves, without any traffic leaving the machine.
class BlackHoleListener {
public:
    BlackHoleListener();
    ~BlackHoleListener();
    BlackHoleListener(const BlackHoleListener&) = delete;
    BlackHoleListener& operator=(const BlackHoleListener&) = delete;

    int port() const { return listener_.port(); }
    // False when the system would not fill the backlog (the test is then skipped).
    bool full() const { return full_; }

private:
    LoopbackListener listener_{0}; // a backlog of one waiting connection at most
    bool full_ = false;
    std::vector<int> fillers_;
};

} // namespace varnoth::test
