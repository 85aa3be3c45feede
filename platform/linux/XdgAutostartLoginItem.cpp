#include "platform/linux/XdgAutostartLoginItem.h"

#include "base/Logger.h"
#include "base/PlatformPaths.h"
#include "platform/Platform.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace varnoth {

namespace {

// Key files escape these in string values.
std::string escapedString(std::string_view value) {
    std::string result;
    for (const char c : value) {
        switch (c) {
        case '\\':
            result += "\\\\";
            break;
        case '\n':
            result += "\\n";
            break;
        case '\t':
            result += "\\t";
            break;
        case '\r':
            result += "\\r";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::optional<std::string> unescapedString(std::string_view value) {
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\') {
            result += value[i];
            continue;
        }
        if (++i == value.size()) {
            return std::nullopt;
        }
        switch (value[i]) {
        case 's':
            result += ' ';
            break;
        case 'n':
            result += '\n';
            break;
        case 't':
            result += '\t';
            break;
        case 'r':
            result += '\r';
            break;
        case '\\':
            result += '\\';
            break;
        default:
            // Other escapes belong to the Exec quoting rules; keep them for the next step.
            result += '\\';
            result += value[i];
        }
    }
    return result;
}

// The keys of the [Desktop Entry] group.
std::map<std::string, std::string> desktopEntryKeys(const std::string& content) {
    std::map<std::string, std::string> keys;
    std::istringstream lines(content);
    bool inGroup = false;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            inGroup = line == "[Desktop Entry]";
            continue;
        }
        const auto equals = line.find('=');
        if (!inGroup || equals == std::string::npos) {
            continue;
        }
        std::string key = line.substr(0, equals);
        while (!key.empty() && key.back() == ' ') {
            key.pop_back();
        }
        std::size_t start = equals + 1;
        while (start < line.size() && line[start] == ' ') {
            ++start;
        }
        keys.emplace(key, line.substr(start)); // the first occurrence counts
    }
    return keys;
}

std::string displayName(const BundleInfo& bundle) {
    if (!bundle.displayName.empty()) {
        return bundle.displayName;
    }
    return !bundle.name.empty() ? bundle.name : bundle.identifier;
}

bool writeAtomically(const std::filesystem::path& path, const std::string& content, std::string& problem) {
    std::string pattern = (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = mkstemp(pattern.data());
    if (fd < 0) {
        problem = std::strerror(errno);
        return false;
    }
    std::string_view rest = content;
    bool ok = fchmod(fd, 0644) == 0;
    while (ok && !rest.empty()) {
        const ssize_t count = ::write(fd, rest.data(), rest.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        ok = count > 0;
        if (ok) {
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    ok = ok && fsync(fd) == 0;
    if (!ok) {
        problem = std::strerror(errno);
    }
    if (::close(fd) != 0 && ok) {
        problem = std::strerror(errno);
        ok = false;
    }
    if (ok && std::rename(pattern.c_str(), path.c_str()) != 0) {
        problem = std::strerror(errno);
        ok = false;
    }
    if (!ok) {
        ::unlink(pattern.c_str());
    }
    return ok;
}

} // namespace

std::filesystem::path XdgAutostartLoginItem::entryPath() {
    return PlatformPaths::autostartFolder() / (Platform::bundle().identifier + ".desktop");
}

std::string XdgAutostartLoginItem::execValue(const std::filesystem::path& executable) {
    std::string quoted = "\"";
    for (const char c : executable.string()) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
        if (c == '%') {
            quoted += '%'; // a literal percent sign, not a field code
        }
    }
    quoted += '"';
    return escapedString(quoted);
}

std::optional<std::vector<std::string>> XdgAutostartLoginItem::execArguments(std::string_view value) {
    const std::optional<std::string> unescaped = unescapedString(value);
    if (!unescaped) {
        return std::nullopt;
    }
    std::vector<std::string> arguments;
    std::optional<std::string> current;
    bool quoted = false;
    const std::string& text = *unescaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '"') {
                quoted = false;
            } else if (c == '\\') {
                if (++i == text.size()) {
                    return std::nullopt;
                }
                current->push_back(text[i]);
            } else {
                current->push_back(c);
            }
        } else if (c == ' ' || c == '\t' || c == '\n') {
            if (current) {
                arguments.push_back(*current);
                current.reset();
            }
        } else {
            if (!current) {
                current.emplace();
            }
            if (c == '"') {
                quoted = true;
            } else {
                current->push_back(c);
            }
        }
    }
    if (quoted) {
        return std::nullopt;
    }
    if (current) {
        arguments.push_back(*current);
    }
    for (std::string& argument : arguments) {
        std::string plain;
        for (std::size_t i = 0; i < argument.size(); ++i) {
            plain += argument[i];
            if (argument[i] == '%' && i + 1 < argument.size() && argument[i + 1] == '%') {
                ++i;
            }
        }
        argument = plain;
    }
    return arguments;
}

std::string XdgAutostartLoginItem::entryText(const std::filesystem::path& executable,
                                             const std::string& name) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=" +
           escapedString(name) +
           "\n"
           "Exec=" +
           execValue(executable) +
           "\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

bool XdgAutostartLoginItem::isInstalled() {
    std::ifstream in(entryPath(), std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    const auto keys = desktopEntryKeys(content.str());
    auto value = [&keys](const std::string& key) {
        const auto found = keys.find(key);
        return found != keys.end() ? found->second : std::string();
    };
    // An entry the user switched off in the session settings does not start anything.
    if (value("Type") != "Application" || value("Hidden") == "true" ||
        value("X-GNOME-Autostart-enabled") == "false") {
        return false;
    }
    const auto arguments = execArguments(value("Exec"));
    return arguments && !arguments->empty() &&
           arguments->front() == Platform::bundle().executablePath.string();
}

bool XdgAutostartLoginItem::install() {
    const BundleInfo& bundle = Platform::bundle();
    if (bundle.identifier.empty() || bundle.executablePath.empty()) {
        Logger::log("Error: cannot add the login item: the bundle has no identifier or executable");
        return false;
    }
    const std::filesystem::path path = entryPath();
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    std::string problem = error.message();
    if (error || !writeAtomically(path, entryText(bundle.executablePath, displayName(bundle)), problem)) {
        Logger::log("Error: couldn't write the login item " + path.string() + ": " + problem);
        return false;
    }
    return true;
}

bool XdgAutostartLoginItem::remove() {
    if (Platform::bundle().identifier.empty()) {
        return true;
    }
    const std::filesystem::path path = entryPath();
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        Logger::log("Error: couldn't remove the login item " + path.string() + ": " + std::strerror(errno));
        return false;
    }
    return true;
}

bool XdgAutostartLoginItem::isProvidedBySystem() {
    const std::string& identifier = Platform::bundle().identifier;
    std::error_code error;
    for (const auto& folder : PlatformPaths::systemConfigDirectories()) {
        if (!identifier.empty() &&
            std::filesystem::exists(folder / "autostart" / (identifier + ".desktop"), error)) {
            return true;
        }
    }
    return false;
}

} // namespace varnoth
