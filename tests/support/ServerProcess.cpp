#include "tests/support/ServerProcess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace varnoth::test {

std::string readWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

ServerProcess::ServerProcess(std::vector<std::string> extraArguments, std::string dataFolder) {
    char pattern[] = "/tmp/varnoth-server-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    folder_ = pattern;
    logFolder_ = folder_ / "logs";
    recordFolder_ = folder_ / "requests";

    std::vector<std::string> arguments{VARNOTH_SIGNATURE_SERVER,
                                       "--port",
                                       "0",
                                       "--data",
                                       dataFolder,
                                       "--log-dir",
                                       logFolder_.string(),
                                       "--record-dir",
                                       recordFolder_.string()};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    int output[2];
    if (pipe(output) != 0) {
        throw std::runtime_error("pipe failed");
    }
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // the server dies with the test
        dup2(output[1], STDOUT_FILENO);
        close(output[0]);
        close(output[1]);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(output[1]);
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd entry{output[0], POLLIN, 0};
        if (poll(&entry, 1, 100) > 0) {
            char buffer[64];
            const ssize_t count = read(output[0], buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            line.append(buffer, static_cast<std::size_t>(count));
        }
    }
    close(output[0]);
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

int stopChild(pid_t pid, int graceSeconds) {
    kill(pid, SIGTERM);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(graceSeconds);
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return status;
}

int ServerProcess::stop() {
    if (pid_ <= 0) {
        return 0;
    }
    const int status = stopChild(pid_, 10);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

std::vector<std::string> ServerProcess::waitForFiles(const std::filesystem::path& folder, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    std::vector<std::string> files;
    do {
        files.clear();
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
            const std::string name = entry.path().filename().string();
            if (!name.empty() && name[0] != '.') {
                files.push_back(entry.path().string());
            }
        }
        if (files.size() >= count) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    } while (std::chrono::steady_clock::now() < deadline);
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace varnoth::test
