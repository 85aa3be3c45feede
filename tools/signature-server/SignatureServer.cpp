#include "tools/signature-server/SignatureServer.h"

#include "server/Framing.h"
#include "server/Utf16.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <pugixml.hpp>
#include <stdexcept>
#include <unistd.h>

namespace varnoth::signatureserver {

SignatureServer::SignatureServer(ServerOptions options)
    : options_(std::move(options)), data_(DataSet::load(options_.dataFolder)) {
    if (options_.answerFile) {
        answerFileText_ = readFile(*options_.answerFile);
    }
    for (const auto& folder : {options_.logFolder, options_.recordFolder}) {
        if (folder) {
            std::filesystem::create_directories(*folder);
        }
    }
}

void SignatureServer::writeAtomically(const std::filesystem::path& path, std::string_view content) {
    const std::filesystem::path temporary = path.parent_path() / ("." + path.filename().string() + ".tmp");
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw std::runtime_error("cannot write " + temporary.string());
    }
    bool written = true;
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = ::write(fd, content.data() + done, content.size() - done);
        if (count <= 0) {
            written = false;
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    written = ::fsync(fd) == 0 && written;
    ::close(fd);
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string SignatureServer::uniqueName(const char* prefix, const char* suffix) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &parts);
    char name[128];
    std::snprintf(name, sizeof name, "%s-%s-%d-%06llu%s", prefix, stamp, static_cast<int>(::getpid()),
                  static_cast<unsigned long long>(++sequence_), suffix);
    return name;
}

void SignatureServer::store(const std::filesystem::path& folder, const std::string& name,
                            std::string_view content) {
    try {
        writeAtomically(folder / name, content);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "varnoth-signature-server: %s\n", error.what());
    }
}

SignatureServer::Reply SignatureServer::handle(std::string_view requestBytes) {
    if (options_.recordFolder) {
        store(*options_.recordFolder, uniqueName("request", ".bin"), requestBytes);
    }
    const std::optional<std::string> text = utf16::decode(requestBytes);
    // One frame and nothing around it: a marker inside a request would let a text sent by a client (a
    // name in a deployment log, say) pose as a request of its own.
    const auto isOneFrame = [](std::string_view frame) {
        return frame.starts_with(framing::startMarker) && frame.ends_with(framing::endMarker) &&
               frame.find(framing::startMarker, 1) == std::string_view::npos &&
               frame.find(framing::endMarker) == frame.size() - framing::endMarker.size();
    };
    if (!text || !isOneFrame(*text)) {
        return {};
    }
    const std::string document = framing::unframe(*text);
    pugi::xml_document parsed;
    const bool wellFormed =
        parsed.load_buffer(document.data(), document.size(), pugi::parse_default, pugi::encoding_utf8);
    const pugi::xml_node request = parsed.child("Request");
    const std::string type = request.attribute("Type").value();

    if (type == "SubmitDeploymentLog" ||
        (!wellFormed && text->find(R"(Type="SubmitDeploymentLog")") != std::string::npos)) {
        if (options_.logFolder) {
            store(*options_.logFolder, uniqueName("deployment-log", ".txt"), *text);
        }
        return {};
    }
    if (type != "GetSignatures") {
        return {};
    }
    if (answerFileText_) {
        return shape(utf16::encode(*answerFileText_));
    }
    std::string bytes = utf16::encode(data_.answerFor(request.child("EmailAddress").text().get()));
    if (options_.faults.invalidUtf16) {
        const std::size_t middle = (bytes.size() / 2) & ~std::size_t(1);
        bytes.insert(middle, std::string("\x00\xD8", 2)); // a high surrogate followed by no low one
    }
    const std::string start = utf16::encodeAscii(framing::startMarker);
    const std::string end = utf16::encodeAscii(framing::endMarker);
    return shape((options_.faults.noStartMarker ? "" : start) + bytes +
                 (options_.faults.noEndMarker ? "" : end));
}

SignatureServer::Reply SignatureServer::shape(std::string bytes) const {
    const Faults& faults = options_.faults;
    const std::string end = utf16::encodeAscii(framing::endMarker);
    std::string tail;
    if (bytes.size() >= end.size() && bytes.compare(bytes.size() - end.size(), end.size(), end) == 0) {
        tail = end;
        bytes.resize(bytes.size() - end.size());
    }

    // The part before the end marker goes in chunks cut at odd offsets; the end marker travels whole
    // with the last chunk unless it is to be split.
    Reply reply;
    const std::size_t pieces = static_cast<std::size_t>(std::max(faults.chunks, 1));
    const std::size_t size = bytes.size();
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= pieces; ++i) {
        const std::size_t cut = i == pieces ? size : std::max(begin, std::min(size, (size * i / pieces) | 1));
        reply.writes.push_back(bytes.substr(begin, cut - begin));
        begin = cut;
    }
    if (faults.splitEndMarker && !tail.empty()) {
        reply.writes.back() += tail.substr(0, tail.size() / 2);
        reply.writes.push_back(tail.substr(tail.size() / 2));
    } else {
        reply.writes.back() += tail;
    }
    return reply;
}

} // namespace varnoth::signatureserver
