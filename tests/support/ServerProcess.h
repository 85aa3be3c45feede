#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace varnoth::test {

// varnoth-signature-server as a child process on a free loopback port, with its own folders for
// deployment logs and recorded requests; stopped with SIGTERM when dropped.
class ServerProcess {
public:
    explicit ServerProcess(std::vector<std::string> extraArguments = {},
                           std::string dataFolder = VARNOTH_TEST_DATA_DIR);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    int port() const { return port_; }
    const std::filesystem::path& logFolder() const { return logFolder_; }
    const std::filesystem::path& recordFolder() const { return recordFolder_; }

    // The files of a folder in name order, waiting up to five seconds for at least count of them.
    static std::vector<std::string> waitForFiles(const std::filesystem::path& folder, std::size_t count);
    // Stops the server; its exit status (0 for a clean exit, 128 + signal when killed).
    int stop();

private:
    pid_t pid_ = -1;
    int port_ = 0;
    std::filesystem::path folder_, logFolder_, recordFolder_;
};

std::string readWholeFile(const std::filesystem::path& path);
// Replaces the file's content, making its folder when missing; false when it cannot be written.
bool writeWholeFile(const std::filesystem::path& path, const std::string& content);
// A fresh folder below /tmp whose name starts with prefix.
std::filesystem::path makeTemporaryFolder(const std::string& prefix);
// Starts a program with stdin from /dev/null and stdout (and stderr, when errorsToo) appended to a file;
// the child dies with the test process.
pid_t spawnChild(const std::vector<std::string>& arguments, const std::filesystem::path& output,
                 bool errorsToo = true);
// Ends a child with SIGTERM, or SIGKILL after the grace period, and reaps it; its wait status.
int stopChild(pid_t pid, int graceSeconds);

} // namespace varnoth::test
