#pragma once

#include <filesystem>
#include <string>

namespace varnoth {

// Reads an administrator's file whole: only a regular file of at most maxBytes, opened without blocking,
// since a FIFO or a device at the path would otherwise hang or exhaust every start.
class ConfigFile {
public:
    enum class Problem { none, unopenable, notRegular, tooLarge };

    static constexpr std::size_t maxBytes = 1024 * 1024;

    static Problem read(const std::filesystem::path& path, std::string& content);
    // The problem in the words Foundation uses for such a file; empty for none.
    static std::string describe(Problem problem, const std::filesystem::path& path);
};

} // namespace varnoth
