#include "launchd/ProcessType.h"

namespace varnoth {

std::string rawValue(ProcessType type) {
    switch (type) {
    case ProcessType::standard:
        return "Standard";
    case ProcessType::background:
        return "Background";
    case ProcessType::adaptive:
        return "Adaptive";
    case ProcessType::interactive:
        return "Interactive";
    }
    return "Standard";
}

std::optional<ProcessType> processTypeFromRawValue(std::string_view raw) {
    for (const ProcessType type :
         {ProcessType::standard, ProcessType::background, ProcessType::adaptive, ProcessType::interactive}) {
        if (rawValue(type) == raw) {
            return type;
        }
    }
    return std::nullopt;
}

} // namespace varnoth
