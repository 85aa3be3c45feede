// The receive side and the request side of the signature exchange, without sockets, each beside what
// it is compared with in the same run: the receive pipeline (end-marker test per 100 kB chunk, UTF-16
// decoding, unframing, parseSignatures) against pugixml alone on the same 1 MB and 5 MB answers, and
// the request encoding against the bare UTF-16 encoding of the same text.

#include "base/Logger.h"
#include "server/Framing.h"
#include "server/NetworkService.h"
#include "server/SignatureDocuments.h"
#include "server/Utf16.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <pugixml.hpp>
#include <stdexcept>
#include <unistd.h>

namespace {

// The log goes to a file of this process's own temporary folder; it is emptied, never removed.
void logToScratchFile() {
    static const std::filesystem::path path = [] {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "varnoth-receive-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        return std::filesystem::path(pattern) / "bench.log";
    }();
    varnoth::Logger::setLogFilePath(path);
    std::error_code ignored;
    std::filesystem::resize_file(path, 0, ignored);
}

// An answer of about the given size: templates of 10 kB of HTML with entities and non-ASCII text.
const std::string& answerOf(std::size_t megabytes) {
    static std::map<std::size_t, std::string> answers;
    auto& text = answers[megabytes];
    if (!text.empty()) {
        return text;
    }
    std::string html;
    while (html.size() < 10000) {
        html += "&lt;p style=\"font-family: Helvetica\"&gt;Viele Gr\u00FC\u00DFe \u2013 \u6771\u4EAC \u2013 "
                "\U0001F600 with &amp;amp; entities&lt;/p&gt;\n";
    }
    text =
        "<?xml version=\"1.0\" encoding=\"utf-16\"?><Response><Identifier>bench</Identifier><DeploymentData>"
        "<DefaultSignature>1</DefaultSignature><ReplyForwardSignature>2</ReplyForwardSignature><Templates>";
    for (int i = 1; text.size() < megabytes * 1000 * 1000; ++i) {
        text += "<Template><Id>" + std::to_string(i) + "</Id><Name>Signature " + std::to_string(i) +
                "</Name><HTML>" + html + "</HTML></Template>";
    }
    text += "</Templates></DeploymentData></Response>";
    return text;
}

void PugixmlAloneOnAnswer(benchmark::State& state) {
    const std::string& text = answerOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        pugi::xml_document document;
        benchmark::DoNotOptimize(
            document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(PugixmlAloneOnAnswer)->Arg(1)->Arg(5)->Unit(benchmark::kMillisecond);

void ReceivePipeline(benchmark::State& state) {
    logToScratchFile();
    const std::string wire = varnoth::framing::frameText(answerOf(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        // The chunks as the read loop sees them, then the answer's way to a descriptor.
        bool ended = false;
        for (std::size_t start = 0; start < wire.size() && !ended;
             start += varnoth::NetworkService::readLength) {
            ended = varnoth::framing::chunkHoldsEndMarker(
                std::string_view(wire).substr(
                    0, std::min(wire.size(), start + varnoth::NetworkService::readLength)),
                start);
        }
        auto text = varnoth::utf16::decode(wire);
        varnoth::NetworkService service;
        auto descriptor = service.parseSignatures(varnoth::framing::unframe(std::move(*text)));
        if (!ended || !descriptor) {
            state.SkipWithError("the answer did not go through");
        }
        benchmark::DoNotOptimize(descriptor);
        state.PauseTiming();
        logToScratchFile();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * wire.size() / 2));
}
BENCHMARK(ReceivePipeline)->Arg(1)->Arg(5)->Unit(benchmark::kMillisecond);

// A run's deployment log of 60 lines, about 6 kB.
const std::string& runLog() {
    static const std::string log = [] {
        std::string text;
        for (int i = 0; i < 60; ++i) {
            text += "2026-01-01 10:00:00  Created signature Legal notice \u2013 \u6771\u4EAC <" +
                    std::to_string(i) + "> & successfully with some more text\n";
        }
        return text;
    }();
    return log;
}

void EncodeSignaturesRequest(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(varnoth::makeSignaturesRequest("anna.berg@example.com"));
    }
}
BENCHMARK(EncodeSignaturesRequest)->Unit(benchmark::kMicrosecond);

void EncodeDeploymentLogRequest(benchmark::State& state) {
    varnoth::DeploymentLogContent content;
    content.deployIdentifier = "ID-7";
    content.deployInformation =
        "<DeploymentInformation><DeploymentDataSource>Group</DeploymentDataSource>"
        "<DeploymentDataSourceName>Sales</DeploymentDataSourceName></DeploymentInformation>";
    content.bundleName = "Varnoth Brelvane Agent";
    content.shortVersion = "1.0.0";
    content.bundleVersion = "1";
    content.success = true;
    content.log = runLog();
    for (auto _ : state) {
        content.times = varnoth::deploymentTimes(std::chrono::system_clock::now());
        benchmark::DoNotOptimize(varnoth::makeDeploymentLogRequest(varnoth::makeDeploymentLogBody(content)));
    }
}
BENCHMARK(EncodeDeploymentLogRequest)->Unit(benchmark::kMicrosecond);

// The floor of the request side: UTF-16 encoding of the log text alone.
void Utf16EncodeAlone(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(varnoth::utf16::encode(runLog()));
    }
}
BENCHMARK(Utf16EncodeAlone)->Unit(benchmark::kMicrosecond);

} // namespace
