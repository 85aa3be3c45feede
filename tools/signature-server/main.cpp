// varnoth-signature-server: a signature server for trying the agent and for its tests.
// See README.md in this folder for the data folder and the options.

#include "tools/signature-server/SignatureServer.h"
#include "tools/signature-server/SocketServer.h"

#include "base/TextValues.h"
#include "platform/posix/Descriptors.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

using namespace varnoth::signatureserver;

int stopPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(stopPipe[1], &byte, 1);
}

const char* usage =
    "usage: varnoth-signature-server --data DIR [options]\n"
    "  --listen ADDRESS      address to listen on (default 127.0.0.1)\n"
    "  --port N              port (default 5757; 0 picks a free one)\n"
    "  --data DIR            data folder: signatures.conf and templates/ (required)\n"
    "  --log-dir DIR         store every deployment log received, one file each\n"
    "  --record-dir DIR      store every request's raw bytes, one file each\n"
    "  --answer-file FILE    answer every GetSignatures with this text as is (UTF-8, sent as UTF-16)\n"
    "faults:\n"
    "  --delay MS            wait before answering\n"
    "  --chunks N            answer in N writes\n"
    "  --chunk-pause MS      pause between the writes\n"
    "  --split-end-marker    write the end marker in two halves\n"
    "  --no-start-marker     leave out the start marker\n"
    "  --no-end-marker       leave out the end marker\n"
    "  --invalid-utf16       put a lone surrogate into the answer\n"
    "  --close-after-accept  close each connection right after accepting it\n"
    "  --never-answer        accept, then never read or answer\n"
    "The port is printed on the first line of standard output once the server listens.\n";

int number(const std::string& option, const char* value, int low, int high) {
    const auto parsed = varnoth::text::parseInteger<int>(value);
    if (!parsed || *parsed < low || *parsed > high) {
        throw std::invalid_argument(option + " wants a number from " + std::to_string(low) + " to " +
                                    std::to_string(high));
    }
    return *parsed;
}

} // namespace

int main(int argc, char** argv) {
    ServerOptions options;
    std::string address = "127.0.0.1";
    int port = 5757;
    bool haveData = false;
    try {
        for (int i = 1; i < argc; ++i) {
            const std::string option = argv[i];
            const auto value = [&]() -> const char* {
                if (i + 1 >= argc) {
                    throw std::invalid_argument(option + " wants a value");
                }
                return argv[++i];
            };
            if (option == "--listen") {
                address = value();
            } else if (option == "--port") {
                port = number(option, value(), 0, 65535);
            } else if (option == "--data") {
                options.dataFolder = value();
                haveData = true;
            } else if (option == "--log-dir") {
                options.logFolder = value();
            } else if (option == "--record-dir") {
                options.recordFolder = value();
            } else if (option == "--answer-file") {
                options.answerFile = value();
            } else if (option == "--delay") {
                options.faults.delay = std::chrono::milliseconds(number(option, value(), 0, 3600000));
            } else if (option == "--chunks") {
                options.faults.chunks = number(option, value(), 1, 100000);
            } else if (option == "--chunk-pause") {
                options.faults.chunkPause = std::chrono::milliseconds(number(option, value(), 0, 3600000));
            } else if (option == "--split-end-marker") {
                options.faults.splitEndMarker = true;
            } else if (option == "--no-start-marker") {
                options.faults.noStartMarker = true;
            } else if (option == "--no-end-marker") {
                options.faults.noEndMarker = true;
            } else if (option == "--invalid-utf16") {
                options.faults.invalidUtf16 = true;
            } else if (option == "--close-after-accept") {
                options.faults.closeAfterAccept = true;
            } else if (option == "--never-answer") {
                options.faults.neverAnswer = true;
            } else if (option == "--help" || option == "-h") {
                std::fputs(usage, stdout);
                return 0;
            } else {
                throw std::invalid_argument("unknown option " + option);
            }
        }
        if (!haveData) {
            throw std::invalid_argument("--data is required");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "varnoth-signature-server: %s\n%s", error.what(), usage);
        return 2;
    }

    try {
        if (!varnoth::Descriptors::openPipe(stopPipe)) {
            throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
        }
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGTERM, &action, nullptr);
        ::sigaction(SIGINT, &action, nullptr);
        std::signal(SIGPIPE, SIG_IGN);

        SignatureServer server(options);
        SocketServer sockets(server, address, static_cast<std::uint16_t>(port));
        std::printf("%u\n", static_cast<unsigned>(sockets.port()));
        std::fflush(stdout);
        std::fprintf(stderr, "varnoth-signature-server: listening on %s port %u, data %s\n", address.c_str(),
                     static_cast<unsigned>(sockets.port()), options.dataFolder.c_str());
        sockets.run(stopPipe[0]);
        std::fprintf(stderr, "varnoth-signature-server: stopped\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "varnoth-signature-server: %s\n", error.what());
        return 1;
    }
    return 0;
}
