#include "launchd/inetdCompatibility.h"

namespace varnoth {

inetdCompatibility inetdCompatibility::decode(const KeyedDecodingContainer& container) {
    return inetdCompatibility(container.decode<bool>("Wait"));
}

void inetdCompatibility::encode(KeyedEncodingContainer& container) const {
    container.encode("Wait", wait);
}

} // namespace varnoth
