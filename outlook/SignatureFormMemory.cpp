#include "outlook/SignatureFormMemory.h"

#include "outlook/AppleScriptProtocol.h"
#include "platform/Platform.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>

namespace varnoth {

namespace {

using Selector = AppleScriptProtocol::Selector;

constexpr std::uint32_t rotateRight(std::uint32_t value, int bits) {
    return (value >> bits) | (value << (32 - bits));
}

constexpr std::array<std::uint32_t, 64> roundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

void compress(std::array<std::uint32_t, 8>& state, const unsigned char* block) {
    std::array<std::uint32_t, 64> words{};
    for (int i = 0; i < 16; ++i) {
        words[i] = std::uint32_t{block[4 * i]} << 24 | std::uint32_t{block[4 * i + 1]} << 16 |
                   std::uint32_t{block[4 * i + 2]} << 8 | std::uint32_t{block[4 * i + 3]};
    }
    for (int i = 16; i < 64; ++i) {
        const std::uint32_t s0 =
            rotateRight(words[i - 15], 7) ^ rotateRight(words[i - 15], 18) ^ (words[i - 15] >> 3);
        const std::uint32_t s1 =
            rotateRight(words[i - 2], 17) ^ rotateRight(words[i - 2], 19) ^ (words[i - 2] >> 10);
        words[i] = words[i - 16] + s0 + words[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (int i = 0; i < 64; ++i) {
        const std::uint32_t t1 = h + (rotateRight(e, 6) ^ rotateRight(e, 11) ^ rotateRight(e, 25)) +
                                 ((e & f) ^ (~e & g)) + roundConstants[i] + words[i];
        const std::uint32_t t2 =
            (rotateRight(a, 2) ^ rotateRight(a, 13) ^ rotateRight(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    const std::array<std::uint32_t, 8> added = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += added[i];
    }
}

// What is remembered of a created signature: the lengths and digests of the content and of Outlook's form.
std::vector<std::string> memoryOf(const std::string& content, const std::string& form) {
    return {std::to_string(content.size()), SignatureFormMemory::digest(content), std::to_string(form.size()),
            SignatureFormMemory::digest(form)};
}

} // namespace

std::string SignatureFormMemory::key(const std::string& signatureName) {
    return "outlookSignatureForm." + signatureName;
}

std::string SignatureFormMemory::digest(std::string_view text) {
    std::array<std::uint32_t, 8> state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                          0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t whole = text.size() - text.size() % 64;
    for (std::size_t at = 0; at < whole; at += 64) {
        compress(state, bytes + at);
    }
    // The tail, a one bit, zeros, and the length in bits as a big-endian 64-bit number.
    std::array<unsigned char, 128> last{};
    const std::size_t tail = text.size() - whole;
    std::copy(bytes + whole, bytes + text.size(), last.begin());
    last[tail] = 0x80;
    const std::size_t padded = tail < 56 ? 64 : 128;
    const std::uint64_t bits = static_cast<std::uint64_t>(text.size()) * 8;
    for (int i = 0; i < 8; ++i) {
        last[padded - 1 - static_cast<std::size_t>(i)] = static_cast<unsigned char>(bits >> (8 * i));
    }
    for (std::size_t at = 0; at < padded; at += 64) {
        compress(state, last.data() + at);
    }
    static constexpr char hex[] = "0123456789abcdef";
    std::string result;
    for (const std::uint32_t word : state) {
        for (int shift = 28; shift >= 0; shift -= 4) {
            result += hex[(word >> shift) & 0xF];
        }
    }
    return result;
}

SignatureFormMemory::SignatureFormMemory(std::unique_ptr<ScriptObject> object) : object_(std::move(object)) {}

ScriptReply SignatureFormMemory::send(std::string_view selector, const std::vector<std::string>& arguments) {
    ScriptReply reply = object_->send(selector, arguments);
    if (reply.delivered && selector == Selector::createSignature && arguments.size() == 2) {
        remember(arguments[0], arguments[1]);
    }
    return reply;
}

// The creation has been delivered whatever happens here: a form that cannot be read back or stored
// only means that the next update compares Outlook's own form and may create the signature again.
void SignatureFormMemory::remember(const std::string& name, const std::string& content) {
    try {
        const ScriptReply form = object_->send(Selector::getSignature, {name});
        // An empty form is a signature Outlook did not keep; it must keep counting as missing.
        if (form.delivered && form.text && !form.text->empty()) {
            Platform::userDefaults().setStringArray(key(name), memoryOf(content, *form.text));
        }
    } catch (const std::exception&) {
    }
}

bool SignatureFormMemory::holds(const std::string& name, const std::string& form,
                                const std::string& content) {
    try {
        const auto memory = Platform::userDefaults().stringArray(key(name));
        // The lengths first: a text of another length needs no digest.
        if (memory && memory->size() == 4) {
            return (*memory)[0] == std::to_string(content.size()) &&
                   (*memory)[2] == std::to_string(form.size()) && (*memory)[3] == digest(form) &&
                   (*memory)[1] == digest(content);
        }
        // Earlier versions kept the created content itself and the form's digest. Read as it stands, and
        // once it matches kept in the bounded form, so a preferences file they filled shrinks again.
        if (memory && memory->size() == 2 && (*memory)[0] == content && (*memory)[1] == digest(form)) {
            Platform::userDefaults().setStringArray(key(name), memoryOf(content, form));
            return true;
        }
    } catch (const std::exception&) {
    }
    return false;
}

} // namespace varnoth
