#include "launchd/LaunchControl.h"

#include "base/PlatformPaths.h"
#include "base/TextValues.h"
#include "platform/Platform.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace varnoth {

namespace {

[[noreturn]] void throwFileError(const char* what, const std::filesystem::path& path, int error) {
    throw std::filesystem::filesystem_error(what, path, std::error_code(error, std::generic_category()));
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

std::string readWholeFile(const std::filesystem::path& path) {
    // Non-blocking, so that a FIFO put in the folder cannot hold the agent; only a regular file is read.
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) {
        throwFileError("Cannot read the job file", path, errno);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throwFileError("Cannot read the job file", path, EINVAL);
    }
    std::string content;
    char buffer[16384];
    while (true) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count > 0) {
            content.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0) {
            return content;
        } else if (errno != EINTR) {
            throwFileError("Cannot read the job file", path, errno);
        }
    }
}

// Written beside the target and renamed over it: launchd never reads half a record, and a symbolic
// link at the path is replaced, not followed.
void writeWholeFile(const std::filesystem::path& path, std::string_view content) {
    std::string temporary = (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0) {
        throwFileError("Cannot write the job file", path, errno);
    }
    const auto fail = [&](int error) {
        ::unlink(temporary.c_str());
        throwFileError("Cannot write the job file", path, error);
    };
    if (::fchmod(file.get(), 0644) != 0) {
        fail(errno);
    }
    while (!content.empty()) {
        const ssize_t count = ::write(file.get(), content.data(), content.size());
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(errno);
        }
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    if (::fsync(file.get()) != 0 || ::close(file.release()) != 0) {
        fail(errno);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        fail(errno);
    }
}

// Line ends in the Unicode sense: LF, VT, FF, CR, NEL, LINE SEPARATOR and PARAGRAPH SEPARATOR.
std::size_t newlineLengthAt(std::string_view text, std::size_t position) {
    const std::string_view rest = text.substr(position);
    if (!rest.empty() && (rest[0] == '\n' || rest[0] == '\v' || rest[0] == '\f' || rest[0] == '\r')) {
        return 1;
    }
    if (rest.starts_with("\xC2\x85")) {
        return 2;
    }
    if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
        return 3;
    }
    return 0;
}

std::string_view withoutNewlinesAround(std::string_view text) {
    while (const std::size_t length = newlineLengthAt(text, 0)) {
        text.remove_prefix(length);
    }
    while (!text.empty()) {
        std::size_t length = 0;
        for (const std::size_t candidate : {1U, 2U, 3U}) {
            if (text.size() >= candidate && newlineLengthAt(text, text.size() - candidate) == candidate) {
                length = candidate;
                break;
            }
        }
        if (length == 0) {
            break;
        }
        text.remove_suffix(length);
    }
    return text;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::optional<AgentStatus> statusFromPidColumn(std::string_view column) {
    if (column == "-") {
        return AgentStatus::loaded();
    }
    if (column.empty()) {
        return std::nullopt;
    }
    if (const auto pid = text::parseInteger<std::int64_t>(column)) {
        return AgentStatus::running(*pid);
    }
    return std::nullopt;
}

} // namespace

LaunchControl::LaunchControl() : LaunchControl(Options{}) {}

LaunchControl::LaunchControl(Options options) : options_(std::move(options)) {
    encoder.outputFormat = PropertyListEncoder::OutputFormat::xml;
}

LaunchControl& LaunchControl::shared() {
    static LaunchControl instance; // initialised once, thread-safe
    return instance;
}

std::filesystem::path LaunchControl::launchAgentsURL() const {
    return options_.launchAgentsFolder.value_or(PlatformPaths::launchAgentsFolder());
}

LaunchAgent LaunchControl::readCalled(const std::string& name) const {
    return read(launchAgentsURL() / name);
}

LaunchAgent LaunchControl::read(const std::filesystem::path& url) const {
    const std::string content = readWholeFile(url);
    LaunchAgent agent = decoder.decode<LaunchAgent>(content);
    agent.url = url;
    return agent;
}

void LaunchControl::write(LaunchAgent& agent) const {
    writeTo(agent, launchAgentsURL() / (agent.label + ".plist"));
}

void LaunchControl::writeCalled(LaunchAgent& agent, const std::string& name) const {
    writeTo(agent, launchAgentsURL() / name);
}

void LaunchControl::writeTo(LaunchAgent& agent, std::filesystem::path url) const {
    if (url.extension() != ".plist") {
        url += ".plist";
    }
    writeWholeFile(url, encoder.encode(agent));
    agent.url = url;
}

void LaunchControl::locate(LaunchAgent& agent) const {
    std::vector<std::filesystem::path> entries;
    for (const auto& entry : std::filesystem::directory_iterator(launchAgentsURL())) {
        // Links, folders, FIFOs and devices are not job files; reading a FIFO would block.
        std::error_code error;
        if (!entry.path().filename().string().starts_with(".") &&
            entry.symlink_status(error).type() == std::filesystem::file_type::regular) {
            entries.push_back(entry.path());
        }
    }
    // The folder's own order is the file system's; name order makes "the last one wins" repeatable.
    std::sort(entries.begin(), entries.end());
    for (const auto& path : entries) {
        try {
            if (read(path).label == agent.label) {
                agent.url = path;
            }
        } catch (const std::filesystem::filesystem_error&) {
            // Not a readable file (a folder, a dangling link, no permission): not ours.
        } catch (const PropertyListError&) {
            // Not a job record.
        }
    }
}

void LaunchControl::load(const LaunchAgent& agent) const {
    if (!agent.url) {
        throw LaunchControlError::urlNotSet(agent.label);
    }
    launchctl("load", agent.url->string());
}

void LaunchControl::unload(const LaunchAgent& agent) const {
    if (!agent.url) {
        throw LaunchControlError::urlNotSet(agent.label);
    }
    launchctl("unload", agent.url->string());
}

void LaunchControl::start(const LaunchAgent& agent) const {
    launchctl("start", agent.label);
}

void LaunchControl::stop(const LaunchAgent& agent) const {
    launchctl("stop", agent.label);
}

void LaunchControl::launchctl(const std::string& command, const std::string& argument) const {
    // launchctl reports its own failures on the inherited standard error; nobody waits for it.
    Platform::processLauncher().launch(options_.launchctl, {command, argument});
}

AgentStatus LaunchControl::status(const LaunchAgent& agent) const {
    ProcessLauncher& launcher = Platform::processLauncher();
    ProcessLauncher::Request list;
    list.program = options_.launchctl;
    list.arguments = {"list"};
    const ProcessLauncher::Result listed = launcher.run(list);

    ProcessLauncher::Request grep;
    grep.program = options_.grep;
    grep.arguments = {agent.label};
    grep.input = listed.output;
    const ProcessLauncher::Result matched = launcher.run(grep);

    ProcessLauncher::Request cut;
    cut.program = options_.cut;
    cut.arguments = {"-f1"};
    cut.input = matched.output;
    const ProcessLauncher::Result column = launcher.run(cut);

    return statusFromListing(column.output, matched.output, agent.label);
}

AgentStatus LaunchControl::statusFromListing(const std::string& cutOutput, const std::string& grepOutput,
                                             const std::string& label) {
    if (!text::isValidUtf8(cutOutput)) {
        return AgentStatus::unloaded();
    }
    const std::string_view column = withoutNewlinesAround(cutOutput);
    if (column.empty()) {
        return AgentStatus::unloaded();
    }
    if (const auto status = statusFromPidColumn(column)) {
        return *status;
    }
    for (std::string_view line : split(grepOutput, '\n')) {
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        const std::vector<std::string_view> columns = split(line, '\t');
        if (columns.size() >= 3 && columns[2] == label) {
            // launchd lists the job itself; a first column that is no pid still means it is loaded.
            return statusFromPidColumn(columns[0]).value_or(AgentStatus::loaded());
        }
    }
    return AgentStatus::unloaded();
}

} // namespace varnoth
