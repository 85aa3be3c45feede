// The receive side of the signature query on a large answer (500 templates, about 5 MB of text):
// pugixml alone, parseSignatures, and read + decode + unframe + parse from a loopback server.
// Counters: peak heap bytes of the measured work (operator new and pugixml's allocations) and their
// ratio to the answer's size, as text (UTF-8) and on the wire (UTF-16).

#include "base/Logger.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <new>
#include <pugixml.hpp>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<std::size_t> heapNow{0};
std::atomic<std::size_t> heapPeak{0};

void* counted(void* block) {
    if (block != nullptr) {
        const std::size_t now = heapNow += malloc_usable_size(block);
        std::size_t peak = heapPeak.load();
        while (now > peak && !heapPeak.compare_exchange_weak(peak, now)) {
        }
    }
    return block;
}

void release(void* block) {
    if (block != nullptr) {
        heapNow -= malloc_usable_size(block);
        std::free(block);
    }
}

void* pugiAllocate(size_t size) {
    return counted(std::malloc(size));
}

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::size_t startPeak() {
    heapPeak = heapNow.load();
    return heapNow.load();
}

std::string makeAnswer() {
    std::string html;
    for (int line = 0; line < 100; ++line) {
        html += "&lt;p style=\"font-family: Helvetica\"&gt;Viele Grüße – 東京 – 😀 Line " +
                std::to_string(line) + " of a long signature with &amp;amp; entities&lt;/p&gt;\n";
    }
    html.resize(std::min<std::size_t>(html.size(), 9800));
    html = html.substr(0, html.rfind('\n') + 1);
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>bench</Identifier>"
        "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
        "<DeploymentDataSourceName>Bench</DeploymentDataSourceName></DeploymentInformation><DeploymentData>"
        "<DefaultSignature>1</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature>"
        "<RemoveOtherSignatures>UseGlobalSettings</RemoveOtherSignatures><Templates>";
    for (int i = 1; i <= 500; ++i) {
        text += "<Template><Id>" + std::to_string(i) + "</Id><Name>Signature " + std::to_string(i) +
                "</Name><HTML>" + html + "</HTML></Template>";
    }
    text += "</Templates></DeploymentData><ApplicationSettings><RemoveOtherSignatures>false</"
            "RemoveOtherSignatures>"
            "</ApplicationSettings></Response>";
    return text;
}

const std::string& answer() {
    static const std::string text = makeAnswer();
    return text;
}

// Starts an empty scratch log. The path is set anew every time, because a benchmark may have pointed
// the log at /dev/null, which must never be removed.
void logToScratchFile() {
    const auto path = std::filesystem::temp_directory_path() / "varnoth-bench.log";
    varnoth::Logger::setLogFilePath(path);
    std::filesystem::remove(path);
}

void report(benchmark::State& state, std::size_t peak) {
    const double text = static_cast<double>(answer().size());
    state.counters["answer_MB"] = text / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
    state.counters["peak_per_text"] = static_cast<double>(peak) / text;
    state.counters["peak_per_wire"] =
        static_cast<double>(peak) / static_cast<double>(varnoth::utf16::encode(answer()).size());
}

void PugixmlAlone(benchmark::State& state) {
    pugi::set_memory_management_functions(pugiAllocate, release);
    const std::string& text = answer();
    std::size_t peak = 0;
    for (auto _ : state) {
        const std::size_t base = startPeak();
        pugi::xml_document document;
        benchmark::DoNotOptimize(
            document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8));
        peak = std::max(peak, heapPeak.load() - base);
    }
    report(state, peak);
}
BENCHMARK(PugixmlAlone)->Unit(benchmark::kMillisecond);

void ParseSignatures(benchmark::State& state) {
    pugi::set_memory_management_functions(pugiAllocate, release);
    logToScratchFile();
    const std::string& text = answer();
    std::size_t peak = 0;
    for (auto _ : state) {
        const std::size_t base = startPeak();
        varnoth::NetworkService service;
        auto descriptor = service.parseSignatures(text);
        if (!descriptor || descriptor->additionalSignatures.size() != 498) {
            state.SkipWithError("unexpected parse result");
        }
        peak = std::max(peak, heapPeak.load() - base);
    }
    report(state, peak);
}
BENCHMARK(ParseSignatures)->Unit(benchmark::kMillisecond);

// The same with the log going to /dev/null: the share of the parse that is the log file's.
void ParseSignaturesWithoutLogFile(benchmark::State& state) {
    pugi::set_memory_management_functions(pugiAllocate, release);
    varnoth::Logger::setLogFilePath("/dev/null");
    const std::string& text = answer();
    for (auto _ : state) {
        varnoth::NetworkService service;
        benchmark::DoNotOptimize(service.parseSignatures(text));
    }
    logToScratchFile();
}
BENCHMARK(ParseSignaturesWithoutLogFile)->Unit(benchmark::kMillisecond);

// The processor work of readResponse without the socket: end test over the chunks, decoding of the
// whole answer, removing the markers.
void DecodeAndUnframe(benchmark::State& state) {
    const std::string wire = varnoth::framing::frameText(answer());
    for (auto _ : state) {
        for (std::size_t chunk = 0; chunk < wire.size(); chunk += varnoth::NetworkService::readLength) {
            benchmark::DoNotOptimize(varnoth::framing::chunkHoldsEndMarker(
                std::string_view(wire).substr(
                    0, std::min(wire.size(), chunk + varnoth::NetworkService::readLength)),
                chunk));
        }
        auto text = varnoth::utf16::decode(wire);
        benchmark::DoNotOptimize(varnoth::framing::unframe(std::move(*text)));
    }
}
BENCHMARK(DecodeAndUnframe)->Unit(benchmark::kMillisecond);

// varnoth-signature-server answering every query with the answer above.
class LoopbackServer {
public:
    LoopbackServer() {
        file_ = std::filesystem::temp_directory_path() /
                ("varnoth-bench-answer-" + std::to_string(getpid()) + ".txt");
        std::ofstream(file_, std::ios::binary)
            << varnoth::framing::startMarker << answer() << varnoth::framing::endMarker;
        int output[2];
        if (pipe(output) != 0) {
            throw std::runtime_error("pipe");
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(output[1], STDOUT_FILENO);
            execl(VARNOTH_SIGNATURE_SERVER, VARNOTH_SIGNATURE_SERVER, "--port", "0", "--data",
                  VARNOTH_TEST_DATA_DIR, "--answer-file", file_.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(output[1]);
        char line[32] = {};
        const ssize_t count = read(output[0], line, sizeof line - 1);
        close(output[0]);
        port_ = count > 0 ? std::atoi(line) : 0;
    }
    ~LoopbackServer() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        std::filesystem::remove(file_);
    }
    int port() const { return port_; }

private:
    pid_t pid_ = -1;
    int port_ = 0;
    std::filesystem::path file_;
};

void ReceivePipeline(benchmark::State& state) {
    pugi::set_memory_management_functions(pugiAllocate, release);
    logToScratchFile();
    LoopbackServer server;
    const std::string request = varnoth::makeSignaturesRequest("bench@example.com");
    std::size_t peak = 0;
    double wall = 0;
    double readSeconds = 0;
    int runs = 0;
    for (auto _ : state) {
        varnoth::NetworkService service;
        service.tcpClient = std::make_unique<varnoth::TCPClient>("127.0.0.1", server.port());
        if (service.tcpClient->connect(5) || service.tcpClient->send(request)) {
            state.SkipWithError("no loopback server");
            break;
        }
        // The agent reads one second after sending; here the server gets a moment to start writing.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const std::size_t base = startPeak();
        const auto started = std::chrono::steady_clock::now();
        const double processorStart = threadSeconds();
        std::optional<std::string> text = service.readResponse();
        readSeconds += threadSeconds() - processorStart;
        std::optional<varnoth::SignatureDescriptor> descriptor;
        if (text) {
            descriptor = service.parseSignatures(*text);
        }
        text.reset();
        // The cost is the processor time of the agent's thread; the wall time also holds the waits for
        // the server's bytes.
        state.SetIterationTime(threadSeconds() - processorStart);
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        ++runs;
        peak = std::max(peak, heapPeak.load() - base);
        if (!descriptor || descriptor->additionalSignatures.size() != 498) {
            state.SkipWithError("unexpected answer");
            break;
        }
    }
    report(state, peak);
    state.counters["wall_ms"] = runs > 0 ? 1000 * wall / runs : 0;
    state.counters["read_ms"] = runs > 0 ? 1000 * readSeconds / runs : 0; // read, decode and unframe
}
BENCHMARK(ReceivePipeline)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

void* operator new(std::size_t size) {
    if (void* block = counted(std::malloc(size == 0 ? 1 : size))) {
        return block;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
