#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace varnoth::test {

// A stand-in for launchctl: a shell script that appends each command line it gets to a file (the
// arguments joined with "|") and answers "list" with the table the test sets.
class FakeLaunchctl {
public:
    explicit FakeLaunchctl(const std::filesystem::path& folder);

    const std::filesystem::path& path() const { return script_; }
    void setListing(const std::string& table) const;
    // The recorded command lines; waits (up to ten seconds) until at least count are there, since
    // launchctl is started without waiting for it.
    std::vector<std::string> calls(std::size_t count = 0) const;

private:
    std::filesystem::path script_;
    std::filesystem::path callsFile_;
    std::filesystem::path listingFile_;
};

} // namespace varnoth::test
