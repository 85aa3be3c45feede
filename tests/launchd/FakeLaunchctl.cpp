#include "tests/launchd/FakeLaunchctl.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace varnoth::test {

FakeLaunchctl::FakeLaunchctl(const std::filesystem::path& folder)
    : script_(folder / "launchctl"), callsFile_(folder / "launchctl.calls"),
      listingFile_(folder / "launchctl.list") {
    std::filesystem::create_directories(folder);
    std::ofstream script(script_);
    script << "#!/bin/sh\n"
           << "line=\"$1\"; shift\n"
           << "for argument in \"$@\"; do line=\"$line|$argument\"; done\n"
           << "printf '%s\\n' \"$line\" >> '" << callsFile_.string() << "'\n"
           << "if [ \"$line\" = list ] && [ -f '" << listingFile_.string() << "' ]; then cat '"
           << listingFile_.string() << "'; fi\n";
    script.close();
    std::filesystem::permissions(script_, std::filesystem::perms::owner_all);
}

void FakeLaunchctl::setListing(const std::string& table) const {
    std::ofstream out(listingFile_, std::ios::binary | std::ios::trunc);
    out << table;
}

std::vector<std::string> FakeLaunchctl::calls(std::size_t count) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (true) {
        std::vector<std::string> lines;
        std::ifstream in(callsFile_);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        if (lines.size() >= count || std::chrono::steady_clock::now() > deadline) {
            return lines;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace varnoth::test
