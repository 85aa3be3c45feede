#include "config/ConfigFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace varnoth {

ConfigFile::Problem ConfigFile::read(const std::filesystem::path& path, std::string& content) {
    const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return Problem::unopenable;
    }
    struct stat status {};
    Problem problem = Problem::none;
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        problem = Problem::notRegular;
    } else if (static_cast<std::uintmax_t>(status.st_size) > maxBytes) {
        problem = Problem::tooLarge;
    } else {
        content.resize(static_cast<std::size_t>(status.st_size));
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t count = ::read(file, content.data() + done, content.size() - done);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                break; // shorter than it was: the rest is gone
            }
            done += static_cast<std::size_t>(count);
        }
        content.resize(done);
    }
    ::close(file);
    return problem;
}

std::string ConfigFile::describe(Problem problem, const std::filesystem::path& path) {
    const std::string name = "The file \u201c" + path.filename().string() + "\u201d";
    switch (problem) {
    case Problem::unopenable:
        return name + " couldn\u2019t be opened because you don\u2019t have permission to view it.";
    case Problem::notRegular:
        return name + " isn\u2019t a regular file.";
    case Problem::tooLarge:
        return name + " is larger than " + std::to_string(maxBytes) + " bytes.";
    case Problem::none:
        break;
    }
    return {};
}

} // namespace varnoth
