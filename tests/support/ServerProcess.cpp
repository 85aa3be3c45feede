#include "tests/support/ServerProcess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace varnoth::test {

using namespace std::chrono_literals;

std::string readWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

bool writeWholeFile(const std::filesystem::path& path, const std::string& content) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    return static_cast<bool>(out << content);
}

std::filesystem::path makeTemporaryFolder(const std::string& prefix) {
    std::string pattern = "/tmp/" + prefix + "-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    return pattern;
}

pid_t spawnChild(const std::vector<std::string>& arguments, const std::filesystem::path& output,
                 bool errorsToo) {
    std::vector<char*> argv;
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const std::string outputPath = output.string();
    const pid_t pid = fork();
    if (pid == 0) {
#ifdef __linux__
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test program killed outright leaves no server behind
#endif
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        const int out = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(out, STDOUT_FILENO);
        if (errorsToo) {
            dup2(out, STDERR_FILENO);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

int stopChild(pid_t pid, int graceSeconds) {
    kill(pid, SIGTERM);
    int status = 0;
    // After the grace period, SIGKILL until the child is reaped.
    for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(graceSeconds);
         waitpid(pid, &status, WNOHANG) == 0; std::this_thread::sleep_for(10ms)) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
        }
    }
    return status;
}

ServerProcess::ServerProcess(std::vector<std::string> extraArguments, std::string dataFolder)
    : folder_(makeTemporaryFolder("varnoth-server")), logFolder_(folder_ / "logs"),
      recordFolder_(folder_ / "requests") {
    extraArguments.insert(extraArguments.begin(),
                          {VARNOTH_SIGNATURE_SERVER, "--port", "0", "--data", dataFolder, "--log-dir",
                           logFolder_.string(), "--record-dir", recordFolder_.string()});
    // The server prints its port on the first line of its output.
    const auto output = folder_ / "port";
    pid_ = spawnChild(extraArguments, output, false);
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline &&
           waitpid(pid_, nullptr, WNOHANG) == 0) {
        std::this_thread::sleep_for(5ms);
        line = readWholeFile(output);
    }
    try {
        port_ = std::stoi(line);
    } catch (const std::exception&) {
        stop();
        throw std::runtime_error("the signature server did not print its port: " + line);
    }
}

ServerProcess::~ServerProcess() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

int ServerProcess::stop() {
    if (pid_ <= 0) {
        return 0;
    }
    const int status = stopChild(std::exchange(pid_, -1), 10);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

std::vector<std::string> ServerProcess::waitForFiles(const std::filesystem::path& folder, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + 30s; // only waited out when files are missing
    std::vector<std::string> files;
    do {
        files.clear();
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
            if (entry.path().filename().string().rfind('.', 0) != 0) {
                files.push_back(entry.path().string());
            }
        }
        std::this_thread::sleep_for(files.size() >= count ? 0ms : 10ms);
    } while (files.size() < count && std::chrono::steady_clock::now() < deadline);
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace varnoth::test
