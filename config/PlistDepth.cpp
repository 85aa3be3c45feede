#include "config/PlistDepth.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace varnoth {

bool PlistDepth::within(std::string_view content, std::size_t limit) {
    return content.starts_with("bplist") ? binaryWithin(content, limit) : xmlWithin(content, limit);
}

bool PlistDepth::xmlWithin(std::string_view content, std::size_t limit) {
    std::size_t depth = 0;
    for (std::size_t at = content.find('<'); at != std::string_view::npos; at = content.find('<', at)) {
        const std::string_view rest = content.substr(at);
        // Comments, CDATA sections, declarations and instructions hold no elements.
        std::string_view end = ">";
        if (rest.starts_with("<!--")) {
            end = "-->";
        } else if (rest.starts_with("<![CDATA[")) {
            end = "]]>";
        } else if (rest.starts_with("<?")) {
            end = "?>";
        }
        const std::size_t close = content.find(end, at + 1);
        if (close == std::string_view::npos) {
            return true; // unterminated: the parser rejects it
        }
        const std::string_view tag = content.substr(at, close + end.size() - at);
        if (end == ">" && !tag.starts_with("<!") && !tag.ends_with("/>")) {
            if (tag.starts_with("</")) {
                depth -= depth > 0 ? 1 : 0;
            } else if (++depth > limit + 2) { // elements: <plist>, the containers, a value
                return false;
            }
        }
        at = close + end.size();
    }
    return true;
}

bool PlistDepth::binaryWithin(std::string_view content, std::size_t limit) {
    // The trailer: sizes of an offset and of an object reference, object count, top object, and
    // where the offset table starts. A list that does not add up is the parser's to reject.
    if (content.size() < 8 + 32) {
        return true;
    }
    const auto number = [&](std::size_t at, std::size_t size) -> std::optional<std::uint64_t> {
        if (size == 0 || size > 8 || at > content.size() || size > content.size() - at) {
            return std::nullopt;
        }
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = (value << 8) | static_cast<unsigned char>(content[at + i]);
        }
        return value;
    };
    const std::size_t trailer = content.size() - 32;
    const std::size_t offsetSize = static_cast<unsigned char>(content[trailer + 6]);
    const std::size_t refSize = static_cast<unsigned char>(content[trailer + 7]);
    const auto count = number(trailer + 8, 8);
    const auto top = number(trailer + 16, 8);
    const auto table = number(trailer + 24, 8);
    if (!count || !top || !table || offsetSize == 0 || *count > content.size() || *top >= *count ||
        *table > trailer || *count * offsetSize > trailer - *table) {
        return true;
    }
    // The references of a container object: its first reference's place and their number.
    const auto references = [&](std::uint64_t object) -> std::pair<std::size_t, std::uint64_t> {
        const auto offset = number(static_cast<std::size_t>(*table + object * offsetSize), offsetSize);
        if (!offset || *offset >= trailer) {
            return {0, 0};
        }
        auto at = static_cast<std::size_t>(*offset);
        const auto marker = static_cast<unsigned char>(content[at++]);
        const unsigned type = marker >> 4;
        if (type != 0xA && type != 0xC && type != 0xD) {
            return {0, 0};
        }
        std::uint64_t items = marker & 0xF;
        if (items == 0xF) { // the count follows as an integer object
            const auto size = std::size_t{1} << (static_cast<unsigned char>(content[at]) & 0x3);
            items = number(at + 1, size).value_or(0);
            at += 1 + size;
        }
        items *= type == 0xD ? 2 : 1; // keys, then values
        return refSize == 0 || items > (trailer - std::min(at, trailer)) / refSize
                   ? std::pair<std::size_t, std::uint64_t>{0, 0}
                   : std::pair<std::size_t, std::uint64_t>{at, items};
    };

    // Depth-first without recursion. height is, for a finished container, the levels of containers it
    // makes (1 when it holds no container), and for an open one the most of a finished child's, so a
    // shared object is walked once.
    enum : std::uint8_t { unseen, open, done };
    std::vector<std::uint8_t> state(static_cast<std::size_t>(*count), unseen);
    std::vector<std::uint64_t> height(static_cast<std::size_t>(*count), 0);
    struct Frame {
        std::uint64_t object;
        std::size_t next;
        std::uint64_t left;
    };
    std::vector<Frame> path;
    const auto enter = [&](std::uint64_t object) {
        const auto [first, items] = references(object);
        if (items == 0) {
            state[object] = done; // no container below it
            return true;
        }
        state[object] = open;
        path.push_back({object, first, items});
        return path.size() <= limit;
    };
    if (!enter(*top)) {
        return false;
    }
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.left == 0) {
            state[frame.object] = done;
            const std::uint64_t finished = ++height[frame.object];
            path.pop_back();
            if (!path.empty()) {
                height[path.back().object] = std::max(height[path.back().object], finished);
            }
            continue;
        }
        const std::uint64_t child = number(frame.next, refSize).value_or(*count);
        frame.next += refSize;
        --frame.left;
        if (child >= *count) {
            continue;
        }
        if (state[child] == open) {
            return false; // a loop is as deep as it gets
        }
        if (state[child] == done) {
            if (path.size() + height[child] > limit) {
                return false;
            }
            height[frame.object] = std::max(height[frame.object], height[child]);
        } else if (!enter(child)) {
            return false;
        }
    }
    return true;
}

} // namespace varnoth
