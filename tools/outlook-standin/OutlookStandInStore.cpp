#include "tools/outlook-standin/OutlookStandInStore.h"

#include "base/PlatformPaths.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace varnoth {

namespace {

constexpr std::size_t longestFileName = 240; // below NAME_MAX, with room for the temporary's suffix

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

[[noreturn]] void failSystem(const std::string& what, const std::filesystem::path& path) {
    fail(what + " " + path.string() + ": " + std::strerror(errno));
}

// Held while the store changes, so that read-modify-write of the settings is not interleaved.
class StoreLock {
public:
    explicit StoreLock(const std::filesystem::path& folder) {
        std::error_code error;
        std::filesystem::create_directories(folder, error);
        const auto path = folder / ".lock";
        fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ < 0) {
            failSystem("cannot open", path);
        }
        while (::flock(fd_, LOCK_EX) != 0) {
            if (errno != EINTR) {
                ::close(fd_);
                failSystem("cannot lock", path);
            }
        }
    }
    ~StoreLock() { ::close(fd_); }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    int fd_ = -1;
};

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (in.bad()) {
        fail("cannot read " + path.string());
    }
    return content.str();
}

std::string newKey(const std::string& account) {
    return "new " + OutlookStandInStore::encodeName(account);
}
std::string replyKey(const std::string& account) {
    return "reply " + OutlookStandInStore::encodeName(account);
}

} // namespace

std::filesystem::path OutlookStandInStore::defaultFolder() {
    return PlatformPaths::dataFolder() / "Varnoth/Outlook";
}

OutlookStandInStore::OutlookStandInStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::string OutlookStandInStore::encodeName(const std::string& name) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string encoded;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        const bool plain = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                           (byte >= '0' && byte <= '9') || byte == '_' || byte == '-' ||
                           (byte == '.' && i > 0);
        if (plain) {
            encoded += static_cast<char>(byte);
        } else {
            encoded += '%';
            encoded += hex[byte >> 4];
            encoded += hex[byte & 0xF];
        }
    }
    return encoded;
}

std::optional<std::string> OutlookStandInStore::decodeName(const std::string& fileName) {
    auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9') {
            return c - '0';
        }
        if (c >= 'A' && c <= 'F') {
            return c - 'A' + 10;
        }
        return -1;
    };
    std::string name;
    for (std::size_t i = 0; i < fileName.size(); ++i) {
        if (fileName[i] != '%') {
            name += fileName[i];
            continue;
        }
        if (i + 2 >= fileName.size()) {
            return std::nullopt;
        }
        const int high = digit(fileName[i + 1]), low = digit(fileName[i + 2]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        name += static_cast<char>(high * 16 + low);
        i += 2;
    }
    // Only the encoder's own output counts, so every name has exactly one file.
    if (name.empty() || encodeName(name) != fileName) {
        return std::nullopt;
    }
    return name;
}

std::filesystem::path OutlookStandInStore::signaturePath(const std::string& name) const {
    if (name.empty()) {
        fail("a signature needs a name");
    }
    const std::string fileName = encodeName(name);
    if (fileName.size() > longestFileName) {
        fail("signature name too long for the store: " + name);
    }
    return signaturesFolder() / fileName;
}

std::optional<std::string> OutlookStandInStore::signature(const std::string& name) const {
    if (name.empty() || encodeName(name).size() > longestFileName) {
        return std::nullopt;
    }
    return readFile(signaturePath(name));
}

std::vector<std::string> OutlookStandInStore::signatureNames() const {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(signaturesFolder(), error)) {
        // Temporaries of interrupted writes start with "." and are no signatures.
        if (auto name = decodeName(entry.path().filename().string()); name && entry.is_regular_file(error)) {
            names.push_back(std::move(*name));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void OutlookStandInStore::createSignature(const std::string& name, const std::string& content) {
    const auto path = signaturePath(name);
    const std::string how = form();
    if (how != exactForm && how != htmlEditorForm) {
        fail("unknown form " + how + " (exact or html)");
    }
    const std::string kept = how == htmlEditorForm ? htmlForm(content) : content;
    StoreLock lock(folder_);
    writeAtomically(path, kept);
}

std::string OutlookStandInStore::htmlForm(const std::string& content) {
    std::string lowered;
    for (const char c : content.substr(0, 5)) {
        lowered += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const bool document = lowered == "<html";
    std::string form = document ? ""
                                : "<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; "
                                  "charset=utf-8\"></head><body>";
    bool inMarkup = false;
    for (std::size_t i = 0; i < content.size(); ++i) {
        const char c = content[i];
        if (c == '\r' || c == '\n') {
            form += "\r\n";
            if (c == '\r' && i + 1 < content.size() && content[i + 1] == '\n') {
                ++i;
            }
            continue;
        }
        if (c == '<' || c == '>') {
            inMarkup = c == '<';
        }
        form += c == '"' && !inMarkup ? std::string("&quot;") : std::string(1, c);
    }
    return document ? form : form + "</body></html>";
}

void OutlookStandInStore::deleteSignature(const std::string& name) {
    if (name.empty() || encodeName(name).size() > longestFileName) {
        return; // no such signature can exist
    }
    StoreLock lock(folder_);
    std::error_code error;
    std::filesystem::remove(signaturePath(name), error);
    if (error) {
        fail("cannot delete signature " + name + ": " + error.message());
    }
    // Like Outlook, a deleted signature stops being a default.
    Settings settings = readSettings();
    const auto before = settings.size();
    std::erase_if(settings, [&](const auto& entry) {
        return (entry.first.starts_with("new ") || entry.first.starts_with("reply ")) && entry.second == name;
    });
    if (settings.size() != before) {
        writeSettings(settings);
    }
}

void OutlookStandInStore::deleteSignatures() {
    StoreLock lock(folder_);
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(signaturesFolder(), error)) {
        std::filesystem::remove(entry.path(), error);
        if (error) {
            fail("cannot delete " + entry.path().string() + ": " + error.message());
        }
    }
    Settings settings = readSettings();
    std::erase_if(settings, [](const auto& entry) {
        return entry.first.starts_with("new ") || entry.first.starts_with("reply ");
    });
    writeSettings(settings);
}

std::string OutlookStandInStore::version() const {
    if (const char* value = std::getenv(versionVariable)) {
        return value;
    }
    return setting("version").value_or(defaultVersion);
}

void OutlookStandInStore::setVersion(const std::string& version) {
    changeSetting("version", version);
}

std::string OutlookStandInStore::defaultAccount() const {
    if (const char* value = std::getenv(accountVariable)) {
        return value;
    }
    return setting("account").value_or("");
}

void OutlookStandInStore::setDefaultAccount(const std::string& account) {
    changeSetting("account", account.empty() ? std::nullopt : std::optional<std::string>(account));
}

std::string OutlookStandInStore::form() const {
    if (const char* value = std::getenv(formVariable)) {
        return value;
    }
    return setting("form").value_or(exactForm);
}

void OutlookStandInStore::setForm(const std::string& form) {
    if (form != exactForm && form != htmlEditorForm) {
        fail("unknown form " + form + " (exact or html)");
    }
    changeSetting("form", form);
}

std::string OutlookStandInStore::state(const std::string& key) const {
    for (const auto& choice : stateKeys) {
        if (key == choice.key) {
            return setting(key).value_or(choice.normal);
        }
    }
    fail("unknown state " + key);
}

void OutlookStandInStore::setState(const std::string& key, const std::string& value) {
    for (const auto& choice : stateKeys) {
        if (key == choice.key) {
            if (value != choice.normal && value != choice.other) {
                fail("unknown " + key + " " + value + " (" + choice.normal + " or " + choice.other + ")");
            }
            changeSetting(key, value);
            return;
        }
    }
    fail("unknown state " + key);
}

OutlookStandInStore::Defaults OutlookStandInStore::defaults(const std::string& account) const {
    return {setting(newKey(account)), setting(replyKey(account))};
}

std::vector<std::string> OutlookStandInStore::accountsWithDefaults() const {
    std::vector<std::string> accounts;
    for (const auto& [key, value] : readSettings()) {
        const auto blank = key.find(' ');
        if (blank == std::string::npos) {
            continue;
        }
        if (auto account = decodeName(key.substr(blank + 1));
            account && std::find(accounts.begin(), accounts.end(), *account) == accounts.end()) {
            accounts.push_back(*account);
        }
    }
    std::sort(accounts.begin(), accounts.end());
    return accounts;
}

void OutlookStandInStore::setDefaultNewSignature(const std::string& account,
                                                 const std::optional<std::string>& name) {
    setDefault("new", account, name);
}

void OutlookStandInStore::setDefaultReplySignature(const std::string& account,
                                                   const std::optional<std::string>& name) {
    setDefault("reply", account, name);
}

void OutlookStandInStore::setDefault(const char* kind, const std::string& account,
                                     const std::optional<std::string>& name) {
    if (account.empty()) {
        fail("no account given");
    }
    if (name && !signature(*name)) {
        fail("there is no signature named " + *name);
    }
    changeSetting(std::string(kind) + " " + encodeName(account), name);
}

// The settings file: one "key=value" line per setting, the value percent-encoded like a file name.
OutlookStandInStore::Settings OutlookStandInStore::readSettings() const {
    Settings settings;
    const auto text = readFile(folder_ / "settings");
    if (!text) {
        return settings;
    }
    std::istringstream lines(*text);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string encoded = line.substr(equals + 1);
        // An empty value is stored as the bare key and "=".
        auto value = encoded.empty() ? std::optional<std::string>("") : decodeName(encoded);
        if (value) {
            settings.emplace_back(line.substr(0, equals), *value);
        }
    }
    return settings;
}

void OutlookStandInStore::writeSettings(const Settings& settings) const {
    std::string text;
    for (const auto& [key, value] : settings) {
        text += key + "=" + (value.empty() ? std::string() : encodeName(value)) + "\n";
    }
    writeAtomically(folder_ / "settings", text);
}

std::optional<std::string> OutlookStandInStore::setting(const std::string& key) const {
    for (const auto& [name, value] : readSettings()) {
        if (name == key) {
            return value;
        }
    }
    return std::nullopt;
}

void OutlookStandInStore::changeSetting(const std::string& key,
                                        const std::optional<std::string>& value) const {
    StoreLock lock(folder_);
    Settings settings = readSettings();
    std::erase_if(settings, [&](const auto& entry) { return entry.first == key; });
    if (value) {
        settings.emplace_back(key, *value);
    }
    writeSettings(settings);
}

void OutlookStandInStore::writeAtomically(const std::filesystem::path& path,
                                          const std::string& content) const {
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    std::string temporary = (path.parent_path() / ".tmp-XXXXXX").string();
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        failSystem("cannot write in", path.parent_path());
    }
    std::size_t written = 0;
    while (written < content.size()) {
        const ssize_t n = ::write(fd, content.data() + written, content.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            const int saved = errno;
            ::close(fd);
            ::unlink(temporary.c_str());
            errno = saved;
            failSystem("cannot write", path);
        }
        written += static_cast<std::size_t>(n);
    }
    // The content is on disk before the name points at it.
    const bool synced = ::fsync(fd) == 0;
    const bool closed = ::close(fd) == 0;
    if (!synced || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        failSystem("cannot write", path);
    }
}

} // namespace varnoth
