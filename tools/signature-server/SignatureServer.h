#pragma once

#include "tools/signature-server/DataSet.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnoth::signatureserver {

// Misbehaviour on purpose, for testing clients.
struct Faults {
    std::chrono::milliseconds delay{0};      // before the first byte of an answer
    int chunks = 1;                          // answer in this many writes (cut at odd byte offsets)
    std::chrono::milliseconds chunkPause{0}; // between the writes of an answer
    bool splitEndMarker = false;             // the end marker's two halves in two writes
    bool noStartMarker = false;
    bool noEndMarker = false;
    bool invalidUtf16 = false; // a lone surrogate inside the document
    bool closeAfterAccept = false;
    bool neverAnswer = false; // accept, then neither read nor write until the client leaves
};

struct ServerOptions {
    std::filesystem::path dataFolder;
    std::optional<std::filesystem::path> logFolder;    // SubmitDeploymentLog requests, decoded
    std::optional<std::filesystem::path> recordFolder; // every request's raw bytes
    std::optional<std::filesystem::path> answerFile;   // sent instead of the data set's answer, as is
    Faults faults;
};

// Request handling of the demo signature server, without sockets: one complete request frame in,
// the writes of the answer out. Safe to call from several threads at once.
class SignatureServer {
public:
    explicit SignatureServer(ServerOptions options); // throws std::runtime_error on a bad data folder

    struct Reply {
        std::vector<std::string> writes; // the answer's bytes, one entry per write; none: no answer
    };

    // Handles one request: its bytes from the start of the connection's stream (or after the previous
    // request) through its end marker. Never throws for what a client sends.
    Reply handle(std::string_view requestBytes);

    // The UTF-8 answer document for a mailbox.
    std::string answerText(const std::string& mailbox) const { return data_.answerFor(mailbox); }
    const ServerOptions& options() const { return options_; }

    // Writes the file atomically: a temporary file in the same folder, then a rename.
    static void writeAtomically(const std::filesystem::path& path, std::string_view content);

private:
    Reply shape(std::string answerBytes) const;
    void store(const std::filesystem::path& folder, const std::string& name, std::string_view content);
    std::string uniqueName(const char* prefix, const char* suffix);

    ServerOptions options_;
    DataSet data_;
    std::optional<std::string> answerFileText_;
    std::atomic<std::uint64_t> sequence_{0};
};

} // namespace varnoth::signatureserver
