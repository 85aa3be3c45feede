#pragma once

#include "config/Config.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace varnoth::fuzz {

// A fuzz run's private world: HOME, the XDG folders, the system configuration folder and the log file
// all live in one temporary folder, so a target never reads or writes the real ones. The log file is
// emptied whenever it grows past a limit, so a long run does not fill the disk with log lines.
// Every target links LLVMFuzzerInitialize from here, which sets the world up.
class FuzzEnvironment {
public:
    static constexpr std::uintmax_t logLimit = 4 * 1024 * 1024;

    // Sets everything up once per process; later calls do nothing.
    static void setUp();
    static const std::filesystem::path& root();
    // The configuration locations inside the private world, for a bundle named "Agent".
    static Config::Locations configLocations();
    // Writes the input as the file at the path (its folder made when missing), replacing what was there.
    static void writeInput(const std::filesystem::path& path, const std::uint8_t* data, std::size_t size);
    // Empties the log file when it is over the limit; cheap enough to call per input.
    static void trimLog();
};

// The input as bytes.
inline std::string_view bytes(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}
// A finding: aborts when a property that must hold for every input does not.
void require(bool holds);

} // namespace varnoth::fuzz
