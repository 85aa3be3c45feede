#include "platform/posix/PosixProcessLauncher.h"

#include "platform/Termination.h"
#include "platform/posix/Descriptors.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace varnoth {

namespace {

// How often a wait looks at the time limit and the termination flag.
constexpr int terminationCheckMs = 100;

class Pipe {
public:
    Pipe() { Descriptors::openPipe(fds_); }
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool valid() const { return fds_[0] >= 0; }
    int read() const { return fds_[0]; }
    int write() const { return fds_[1]; }
    void closeRead() { closeFd(fds_[0]); }
    void closeWrite() { closeFd(fds_[1]); }

private:
    static void closeFd(int& fd) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
    int fds_[2] = {-1, -1};
};

std::vector<std::string>
mergedEnvironment(const std::vector<std::pair<std::string, std::string>>& additions) {
    std::map<std::string, std::string> merged;
    std::vector<std::string> order;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string text = *entry;
        const auto equals = text.find('=');
        std::string key = text.substr(0, equals);
        if (merged.emplace(key, text).second) {
            order.push_back(key);
        }
    }
    for (const auto& [key, value] : additions) {
        if (!merged.count(key)) {
            order.push_back(key);
        }
        merged[key] = key + "=" + value;
    }
    std::vector<std::string> result;
    result.reserve(order.size());
    for (const auto& key : order) {
        result.push_back(merged[key]);
    }
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (auto& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

void ignoreBrokenPipes() {
    // A child that exits before reading its input must not take the agent down with SIGPIPE.
    static const bool done = [] {
        std::signal(SIGPIPE, SIG_IGN);
        return true;
    }();
    (void)done;
}

// Waits for the child to end while keepWaiting holds, and returns its status; the child is reaped either
// way. Usually it has ended or is ending when its output closes; otherwise waitpid, which has no time-out,
// blocks on a thread of its own while this one waits on its answer and looks at keepWaiting every 100 ms.
// When keepWaiting fails, the child's process group is killed.
template <typename KeepWaiting> int waitForExit(pid_t pid, KeepWaiting keepWaiting) {
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(pid, &status, WNOHANG)) < 0 && errno == EINTR) {
    }
    if (ended != 0) {
        return status;
    }
    struct Reaped {
        std::mutex mutex;
        std::condition_variable changed;
        std::optional<int> status;
    };
    auto reaped = std::make_shared<Reaped>();
    std::thread waiter([pid, reaped] {
        int childStatus = 0;
        while (waitpid(pid, &childStatus, 0) < 0 && errno == EINTR) {
        }
        const std::lock_guard lock(reaped->mutex);
        reaped->status = childStatus;
        reaped->changed.notify_all();
    });
    std::unique_lock lock(reaped->mutex);
    while (!reaped->status && keepWaiting()) {
        reaped->changed.wait_for(lock, std::chrono::milliseconds(terminationCheckMs));
    }
    const bool done = reaped->status.has_value();
    lock.unlock();
    if (!done) {
        kill(-pid, SIGKILL); // the caller would kill it too; the waiter then returns
    }
    waiter.join();
    return reaped->status.value_or(0);
}

} // namespace

ProcessLauncher::Result PosixProcessLauncher::run(const Request& request) {
    ignoreBrokenPipes();
    Result result;
    if (Termination::requested()) {
        result.error = "the agent is exiting";
        return result;
    }
    Pipe input, output, errors;
    if (!input.valid() || !output.valid() || !errors.valid()) {
        result.error = std::strerror(errno);
        return result;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.read(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.write(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.write(), STDERR_FILENO);

    std::string program = request.program.string();
    std::vector<std::string> argumentTexts{program};
    argumentTexts.insert(argumentTexts.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> environmentTexts = mergedEnvironment(request.environment);
    std::vector<char*> argv = pointers(argumentTexts);
    std::vector<char*> envp = pointers(environmentTexts);

    // The child leads a process group of its own, so that stopping it stops whatever it started too.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);

    pid_t pid = 0;
    const int spawnError =
        posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawnError != 0) {
        result.error = std::strerror(spawnError);
        return result;
    }
    result.started = true;
    input.closeRead();
    output.closeWrite();
    errors.closeWrite();

    Descriptors::setNonBlocking(input.write());
    std::size_t written = 0;
    if (request.input.empty()) {
        input.closeWrite();
    }

    const auto deadline = request.timeLimit ? std::chrono::steady_clock::now() + *request.timeLimit
                                            : std::chrono::steady_clock::time_point::max();
    // False once the child must be stopped: past the time limit, or the agent is exiting.
    const auto timeLeft = [&] {
        if (Termination::requested()) {
            result.cancelled = true;
        } else if (std::chrono::steady_clock::now() >= deadline) {
            result.timedOut = true;
        }
        return !result.cancelled && !result.timedOut;
    };
    bool outputOpen = true, errorsOpen = true;
    char buffer[65536];
    // Input still to write keeps the loop going after the child closed its output, so it gets all of it.
    while (outputOpen || errorsOpen || input.write() >= 0) {
        pollfd fds[3];
        nfds_t count = 0;
        const int outputSlot = outputOpen ? static_cast<int>(count++) : -1;
        if (outputSlot >= 0) {
            fds[outputSlot] = {output.read(), POLLIN, 0};
        }
        const int errorsSlot = errorsOpen ? static_cast<int>(count++) : -1;
        if (errorsSlot >= 0) {
            fds[errorsSlot] = {errors.read(), POLLIN, 0};
        }
        const int inputSlot = input.write() >= 0 ? static_cast<int>(count++) : -1;
        if (inputSlot >= 0) {
            fds[inputSlot] = {input.write(), POLLOUT, 0};
        }

        if (!timeLeft()) {
            break;
        }
        int waitMs = terminationCheckMs;
        if (request.timeLimit) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            waitMs = static_cast<int>(std::clamp<long long>(left.count(), 1, terminationCheckMs));
        }
        const int ready = poll(fds, count, waitMs);
        if (ready < 0 && errno != EINTR) {
            break;
        }
        if (ready <= 0) {
            continue;
        }
        auto drain = [&](int slot, int fd, std::string& into, bool& open) {
            if (slot < 0 || (fds[slot].revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
                return;
            }
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n > 0) {
                into.append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
                open = false;
            }
        };
        drain(outputSlot, output.read(), result.output, outputOpen);
        drain(errorsSlot, errors.read(), result.errorOutput, errorsOpen);
        if (inputSlot >= 0 && (fds[inputSlot].revents & (POLLOUT | POLLERR | POLLHUP)) != 0) {
            const ssize_t n =
                ::write(input.write(), request.input.data() + written, request.input.size() - written);
            if (n > 0) {
                written += static_cast<std::size_t>(n);
            }
            if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == request.input.size()) {
                input.closeWrite();
            }
        }
    }
    input.closeWrite();

    // A child that closed its output may still run: the limit holds for it too.
    int status = 0;
    if (!result.timedOut && !result.cancelled) {
        status = waitForExit(pid, timeLeft);
    } else {
        // The whole group: a script's own children (a sleep, a second interpreter) end with it.
        kill(-pid, SIGKILL);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    return result;
}

bool PosixProcessLauncher::launch(const std::filesystem::path& program,
                                  const std::vector<std::string>& arguments) {
    std::string path = program.string();
    std::vector<std::string> argumentTexts{path};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = pointers(argumentTexts);
    pid_t pid = 0;
    if (posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
        return false;
    }
    // Nobody waits for the result, but the child must not linger as a zombie.
    std::thread([pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return true;
}

} // namespace varnoth
