#include "fuzz/FuzzEnvironment.h"

#include "base/Logger.h"
#include "platform/Platform.h"
#include "platform/deterministic/MemoryUserDefaults.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace varnoth::fuzz {

namespace {

std::filesystem::path rootFolder;

} // namespace

void FuzzEnvironment::setUp() {
    if (!rootFolder.empty()) {
        return;
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/varnoth-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make the fuzz folder");
    }
    rootFolder = pattern;
    const std::filesystem::path home = rootFolder / "home";
    std::filesystem::create_directories(home / ".local/state");
    for (const auto& [name, folder] : {std::pair{"HOME", "home"},
                                       {"XDG_STATE_HOME", "home/.local/state"},
                                       {"XDG_CONFIG_HOME", "home/.config"},
                                       {"XDG_DATA_HOME", "home/.local/share"},
                                       {"VARNOTH_SYSTEM_CONFIG_DIR", "etc/Varnoth"}}) {
        setenv(name, (rootFolder / folder).c_str(), 1);
    }
    Logger::setLogFilePath(home / ".local/state/fuzz.log");

    static MemoryUserDefaults defaults;
    Platform::Ports ports;
    ports.userDefaults = &defaults;
    ports.bundle.name = "Varnoth Brelvane Agent";
    Platform::install(ports);
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(rootFolder, ignored);
    });
}

const std::filesystem::path& FuzzEnvironment::root() {
    return rootFolder;
}

void FuzzEnvironment::trimLog() {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(Logger::logFilePath(), error);
    if (!error && size > logLimit) {
        // The log is this process's own temporary file (never a device), so truncating it is safe.
        std::filesystem::resize_file(Logger::logFilePath(), 0, error);
    }
}

Config::Locations FuzzEnvironment::configLocations() {
    return Config::Locations{root() / "etc", root() / "support", "Agent"};
}

void FuzzEnvironment::writeInput(const std::filesystem::path& path, const std::uint8_t* data,
                                 std::size_t size) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

} // namespace varnoth::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    varnoth::fuzz::FuzzEnvironment::setUp();
    return 0;
}
