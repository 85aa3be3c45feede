#include "launchd/LaunchControl.h"
#include "base/TextValues.h"
#include "launchd/LaunchdLoginItem.h"
#include "platform/Platform.h"
#include "platform/linux/XdgAutostartLoginItem.h"
#include "tests/launchd/PlistTestSupport.h"
#include "tests/support/AgentTest.h"
#include "tests/support/ServerProcess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <numeric>
#include <regex>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace varnoth::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// Runs the steps of a transcript on launch control, the job-record login item and the autostart entry. Paths
// in steps are relative to the test's folder, shown as <root> in answers. launchctl is the script
// tests/golden/launchd/launchctl, so the running session's launchctl is never touched.
class LaunchControlTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        fs::copy_file(fs::path(VARNOTH_GOLDEN_DIR) / "launchd/launchctl", root() / "launchctl");
        control.setOptions({.launchAgentsFolder = {}, .launchctl = root() / "launchctl"});
        LaunchControl::shared().setOptions({.launchAgentsFolder = {}, .launchctl = root() / "launchctl"});
    }
    void TearDown() override {
        LaunchControl::shared().setOptions({});
        AgentTest::TearDown();
    }

    // The command line a step started, or how many there are when it is not the next one alone. launchctl is
    // not waited for: its line may take a moment to come.
    std::string nextCall() {
        std::string calls = readWholeFile(root() / "launchctl.calls");
        for (int attempt = 0; std::ranges::count(calls, '\n') <= callCount && attempt < 6000; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            calls = readWholeFile(root() / "launchctl.calls");
        }
        const auto count = std::ranges::count(calls, '\n');
        const auto start = calls.rfind('\n', calls.size() - 2) + 1; // npos + 1 for the first line
        return count == ++callCount ? calls.substr(start, calls.size() - 1 - start)
                                    : std::to_string(count) + " calls";
    }

    // A folder's entries in name order, marked "/" for a folder, "@" for a link and "|" for a pipe.
    static std::string listing(const fs::path& folder) {
        std::string text;
        for (const auto& entry : std::set<fs::directory_entry>(fs::directory_iterator(folder), {})) {
            static const std::map<fs::file_type, std::string> marks = {
                {fs::file_type::directory, "/"}, {fs::file_type::symlink, "@"}, {fs::file_type::fifo, "|"}};
            const auto mark = marks.find(entry.symlink_status().type());
            text += " " + entry.path().filename().string() + (mark == marks.end() ? "" : mark->second);
        }
        return text.empty() ? "empty" : text.substr(1);
    }

    std::string step(const std::string& word, const std::string& raw) {
        const std::string name = raw.substr(0, raw.find(' '));
        const std::string more = raw.find(' ') == std::string::npos ? "" : raw.substr(raw.find(' ') + 1);
        const fs::path path = root() / (word == "job" ? "home/Library/LaunchAgents/" + name : name);
        const auto url = [](const LaunchAgent& agent) { return agent.url.value_or("no url").string(); };
        LaunchAgent named(word == "locate" ? raw : "named");
        if (std::set<std::string>{"write", "job", "mkdir", "fifo", "link", "rm"}.count(word)) {
            // A failed mkfifo shows in the listing: the entry is no pipe.
            word == "write" || word == "job"
                ? writeFile(path, word == "job" ? xmlPlist(unescaped(more)) : unescaped(more))
            : word == "mkdir" ? void(fs::create_directories(path))
            : word == "rm"    ? void(fs::remove_all(path))
            : word == "fifo"  ? void(::mkfifo(path.c_str(), 0600)) // nobody writes: reading it would block
                              : fs::create_symlink(root() / more, path);
            return listing(path.parent_path());
        }
        if (word == "ls" || word == "cat" || word == "folder") {
            return word == "ls" ? listing(path)
                   : word == "cat"
                       ? text::replaceAll(text::replaceAll(readWholeFile(path), "\\", "\\\\"), "\n", "\\n")
                       : control.launchAgentsURL().string();
        }
        if (std::set<std::string>{"save", "writeTo", "writeCalled", "url", "locate"}.count(word)) {
            named.url = root() / "kept.plist";
            word == "writeTo"       ? control.writeTo(agent, path)
            : word == "writeCalled" ? control.writeCalled(named, raw)
            : word == "save"        ? control.write(agent)
            : word == "locate"      ? control.locate(named)
                                    : void();
            return url(word == "writeCalled" || word == "locate" ? named : agent);
        }
        if (word == "read" || word == "readCalled") {
            const LaunchAgent read = word == "read" ? control.read(path) : control.readCalled(raw);
            return oneLine(read) + " from " + url(read);
        }
        // A job file of another writer: written back as XML, read again and through binary.
        if (word == "rewrite") {
            LaunchAgent job = control.read(fs::path(VARNOTH_GOLDEN_DIR) / "launchd/jobs" / raw);
            const std::string from = url(job);
            control.writeCalled(job, raw);
            expectGolden("launchd/rewritten/" + raw, readWholeFile(*job.url));
            LaunchAgent binary = PropertyListDecoder().decode<LaunchAgent>(
                PropertyListEncoder{PropertyListEncoder::OutputFormat::binary}.encode(job));
            binary.url = job.url;
            return from + " to " + url(job) + (control.read(*job.url) == job ? ", read back the same" : "") +
                   (binary == job ? ", the same through binary" : "");
        }
        // launchctl through this instance, or through the record's own forms (the shared instance).
        if (word == "control" || word == "record") {
            raw == "load"     ? (word == "record" ? agent.load() : control.load(agent))
            : raw == "unload" ? (word == "record" ? agent.unload() : control.unload(agent))
            : raw == "start"  ? (word == "record" ? agent.start() : control.start(agent))
                              : (word == "record" ? agent.stop() : control.stop(agent));
            return nextCall();
        }
        if (word == "calls") {
            return std::to_string(std::ranges::count(readWholeFile(root() / "launchctl.calls"), '\n'));
        }
        if (word == "status") {
            writeFile(root() / "launchctl.list", "PID\tStatus\tLabel\n" + unescaped(raw));
            const std::string status = agent.status().description();
            return status + " after " + nextCall();
        }
        if (word == "listing") {
            const auto out = caseArguments(raw); // cut's output, then grep's
            return LaunchControl::statusFromListing(out[0], out.size() > 1 ? out[1] : "", "job")
                .description();
        }
        if (word == "nolaunchctl") {
            const LaunchControl missing({.launchAgentsFolder = {}, .launchctl = root() / "missing"});
            return missing.status(agent).description();
        }
        if (word == "xdg" || word == "launchd") {
            LoginItem& it = word == "xdg" ? static_cast<LoginItem&>(autostart) : jobRecord;
            const bool done = raw == "install"              ? it.install()
                              : raw == "remove"             ? it.remove()
                              : raw == "isProvidedBySystem" ? it.isProvidedBySystem()
                                                            : it.isInstalled();
            return done ? "true" : "false";
        }
        if (word == "entry") {
            writeFile(XdgAutostartLoginItem::entryPath(), unescaped(raw));
            return autostart.isInstalled() ? "installed" : "not installed";
        }
        if (word == "exe" || word == "noidentifier") {
            Platform::Ports ports = Platform::ports();
            word == "exe" ? void(ports.bundle.executablePath = raw) : ports.bundle.identifier.clear();
            Platform::install(ports);
            return word == "exe" ? "executable \"" + Platform::bundle().executablePath.string() + "\""
                                 : "identifier \"" + Platform::bundle().identifier + "\"";
        }
        if (word == "exec" || word == "args") {
            const std::string exec = word == "exec" ? XdgAutostartLoginItem::execValue(raw) : raw;
            const auto arguments = XdgAutostartLoginItem::execArguments(exec).value_or(Lines{"malformed"});
            return std::accumulate(
                arguments.begin(), arguments.end(), word == "exec" ? exec + " " : "",
                [](const std::string& text, const auto& a) { return text + "[" + a + "]"; });
        }
        if (word == "limit") { // a file size limit binds root too; without a size, the hard limit again
            signal(SIGXFSZ, SIG_IGN);
            rlimit limit{};
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = raw.empty() ? limit.rlim_max : std::stoul(raw);
            return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? "set" : "not set";
        }
        ADD_FAILURE() << "no step " << word;
        return "";
    }

    std::string answer(const std::string& word, const std::string& rest) {
        std::string text;
        try {
            text = step(word, text::replaceAll(rest, "<root>", root().string()));
        } catch (const LaunchControlError& error) {
            text = std::string(error.code() == LaunchControlError::Code::urlNotSet ? "urlNotSet " : "") +
                   error.label() + ": " + error.message();
        } catch (const fs::filesystem_error&) {
            text = "filesystem_error";
        }
        // The C++ libraries word a folder blocked by a file differently, so that reason is not compared.
        static const std::regex blocked(
            "(login item [^ ]+: )(filesystem error: .*|Not a directory|File exists)$");
        for (const auto& line : logLines()) {
            text += " | log: " + std::regex_replace(line, blocked, "$1(blocked)");
        }
        clearLog();
        return text::replaceAll(text::replaceAll(text, root().string(), "<root>"), VARNOTH_GOLDEN_DIR,
                                "<golden>");
    }

    LaunchControl control;
    LaunchAgent agent{"com.example.job", {"/bin/true"}};
    XdgAutostartLoginItem autostart;
    LaunchdLoginItem jobRecord{control};
    std::ptrdiff_t callCount = 0;
};

// Launch control's files and launchctl first, then both login items in the same folders.
TEST_F(LaunchControlTest, FilesLaunchctlAndLoginItemsTranscripts) {
    for (const std::string name : {"launchd/control", "launchd/loginitems"}) {
        expectTranscript(name, [this](const auto& word, const auto& rest) { return answer(word, rest); });
    }
}

} // namespace
} // namespace varnoth::test
