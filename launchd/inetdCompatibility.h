#pragma once

#include "launchd/KeyedDecodingContainer.h"
#include "launchd/KeyedEncodingContainer.h"

namespace varnoth {

// Named after its launchd key, which starts in lower case. wait: the job takes over the listening
// socket (inetd's "wait") instead of being handed one accepted connection.
class inetdCompatibility {
public:
    explicit inetdCompatibility(bool wait) : wait(wait) {}

    bool wait;

    static inetdCompatibility decode(const KeyedDecodingContainer& container);
    void encode(KeyedEncodingContainer& container) const;

    bool operator==(const inetdCompatibility&) const = default;
};

} // namespace varnoth
