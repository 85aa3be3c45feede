// The real agent program under the offscreen Qt platform, with a private HOME, against the demo
// signature server on loopback: start-up time until the log says "Starting app engine", resident
// memory of the tray agent once idle and of a --once run, and the processor wake-ups of the idle tray
// agent (voluntary and involuntary context switches of all its threads over VARNOTH_IDLE_SECONDS,
// default 30). Compared with, in the same run: a bare start of the stand-in program (process start-up
// floor) and the demo server's own resident memory.

#include "tests/support/ServerProcess.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// A value in kB from /proc/<pid>/status ("VmRSS", "VmHWM"), or -1.
long statusValue(pid_t pid, const std::string& key) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key + ":", 0) == 0) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    return -1;
}

// Context switches of every thread of a process.
long contextSwitches(pid_t pid) {
    long total = 0;
    std::error_code error;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0 ||
                line.rfind("nonvoluntary_ctxt_switches:", 0) == 0) {
                total += std::stol(line.substr(line.find(':') + 1));
            }
        }
    }
    return total;
}

// One agent process in a private HOME of its own; stopped with SIGTERM when dropped.
class Agent {
public:
    Agent(int serverPort, std::vector<std::string> arguments) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "varnoth-agent-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        root_ = pattern;
        writeFile(root_ / "home/.config/Varnoth/Varnoth Brelvane Agent/Varnoth Brelvane Agent.txt",
                  "SignatureServerAddress=127.0.0.1\nSignatureServerPort=" + std::to_string(serverPort) +
                      "\nUserEmailAddress=anna.berg@example.com\nSuppressErrorMessages=1\n");
        std::filesystem::create_directories(root_ / "home/.local/state");
        started_ = Clock::now();
        pid_ = fork();
        if (pid_ == 0) {
            const int output = ::open((root_ / "output.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            setenv("HOME", (root_ / "home").c_str(), 1);
            setenv("XDG_CONFIG_HOME", (root_ / "home/.config").c_str(), 1);
            setenv("XDG_STATE_HOME", (root_ / "home/.local/state").c_str(), 1);
            setenv("XDG_DATA_HOME", (root_ / "home/.local/share").c_str(), 1);
            setenv("XDG_RUNTIME_DIR", root_.c_str(), 1);
            setenv("VARNOTH_SYSTEM_CONFIG_DIR", (root_ / "etc/Varnoth").c_str(), 1);
            setenv("VARNOTH_OUTLOOK_STANDIN", VARNOTH_OUTLOOK_STANDIN_PROGRAM, 1);
            setenv("QT_QPA_PLATFORM", "offscreen", 1);
            std::vector<std::string> all{VARNOTH_AGENT_PROGRAM};
            all.insert(all.end(), arguments.begin(), arguments.end());
            std::vector<char*> argv;
            for (auto& argument : all) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~Agent() {
        stop();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    pid_t pid() const { return pid_; }
    std::string log() const { return readFile(root_ / "home/.local/state/Varnoth Brelvane Agent.log"); }

    // Waits until the log holds the text after skipping `after`; the time since the start, or nothing.
    std::optional<std::chrono::nanoseconds> waitFor(const std::string& text, std::chrono::seconds limit,
                                                    const std::string& after = "") {
        const auto deadline = Clock::now() + limit;
        while (Clock::now() < deadline) {
            const std::string content = log();
            const auto from = after.empty() ? 0 : content.find(after);
            if (from != std::string::npos && content.find(text, from) != std::string::npos) {
                return Clock::now() - started_;
            }
            std::this_thread::sleep_for(1ms);
        }
        return std::nullopt;
    }
    // Waits for the process to end by itself; its peak resident memory in kB, or -1.
    long waitForExit(std::chrono::seconds limit) {
        const auto deadline = Clock::now() + limit;
        while (Clock::now() < deadline) {
            int status = 0;
            rusage usage{};
            if (wait4(pid_, &status, WNOHANG, &usage) == pid_) {
                pid_ = -1;
                return usage.ru_maxrss;
            }
            std::this_thread::sleep_for(5ms);
        }
        return -1;
    }
    void stop() {
        if (pid_ <= 0) {
            return;
        }
        kill(pid_, SIGTERM);
        const auto deadline = Clock::now() + 5s;
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (Clock::now() > deadline) {
                kill(pid_, SIGKILL);
                waitpid(pid_, &status, 0);
                break;
            }
            std::this_thread::sleep_for(5ms);
        }
        pid_ = -1;
    }

private:
    std::filesystem::path root_;
    pid_t pid_ = -1;
    Clock::time_point started_;
};

varnoth::test::ServerProcess& server() {
    static varnoth::test::ServerProcess instance;
    return instance;
}

// The demo server: this process's child of that name.
pid_t serverPid() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string pid, name, state;
        long parent = 0;
        if (stat >> pid >> name >> state >> parent && parent == getpid() &&
            name.find("varnoth-signatu") != std::string::npos) {
            return static_cast<pid_t>(std::stol(pid));
        }
    }
    return -1;
}

int idleSeconds() {
    const char* value = std::getenv("VARNOTH_IDLE_SECONDS");
    return value != nullptr && std::atoi(value) > 0 ? std::atoi(value) : 30;
}

void StartUpToEngine(benchmark::State& state) {
    for (auto _ : state) {
        Agent agent(server().port(), {});
        const auto elapsed = agent.waitFor("Starting app engine", 30s);
        if (!elapsed) {
            state.SkipWithError("the agent did not start its engine");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(*elapsed).count());
    }
}
BENCHMARK(StartUpToEngine)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(5);

// The floor: starting a small program of this project and waiting for its end.
void ProcessStartFloor(benchmark::State& state) {
    for (auto _ : state) {
        const pid_t pid = fork();
        if (pid == 0) {
            const int scratch =
                ::open("/tmp", O_TMPFILE | O_WRONLY, 0600); // the help text goes nowhere visible
            dup2(scratch, STDOUT_FILENO);
            execl(VARNOTH_OUTLOOK_STANDIN_PROGRAM, VARNOTH_OUTLOOK_STANDIN_PROGRAM, "help",
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        int status = 0;
        waitpid(pid, &status, 0);
    }
}
BENCHMARK(ProcessStartFloor)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4)->Repetitions(5);

void IdleTrayAgent(benchmark::State& state) {
    for (auto _ : state) {
        Agent agent(server().port(), {});
        if (!agent.waitFor("Loading in progress: false", 60s, "Starting app engine")) {
            state.SkipWithError("the first update run did not end");
            break;
        }
        std::this_thread::sleep_for(2s); // let the deployment log go out and the process settle
        const long before = contextSwitches(agent.pid());
        const auto start = Clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(idleSeconds()));
        const long after = contextSwitches(agent.pid());
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.counters["rss_MB"] = static_cast<double>(statusValue(agent.pid(), "VmRSS")) / 1024.0;
        state.counters["peak_rss_MB"] = static_cast<double>(statusValue(agent.pid(), "VmHWM")) / 1024.0;
        state.counters["wakeups_per_s"] = static_cast<double>(after - before) / seconds;
        state.counters["server_rss_MB"] = -1;
        if (const long serverRss = statusValue(serverPid(), "VmRSS"); serverRss > 0) {
            state.counters["server_rss_MB"] = static_cast<double>(serverRss) / 1024.0;
        }
        state.SetIterationTime(seconds);
    }
}
BENCHMARK(IdleTrayAgent)->Unit(benchmark::kSecond)->UseManualTime()->Iterations(1);

void OnceRun(benchmark::State& state) {
    for (auto _ : state) {
        const auto start = Clock::now();
        Agent agent(server().port(), {"--once"});
        const long peak = agent.waitForExit(60s);
        if (peak < 0) {
            state.SkipWithError("--once did not end");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        state.counters["peak_rss_MB"] = static_cast<double>(peak) / 1024.0;
    }
}
BENCHMARK(OnceRun)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1)->Repetitions(3);

} // namespace
