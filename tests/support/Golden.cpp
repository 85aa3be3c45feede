#include "tests/support/Golden.h"

#include "base/TextValues.h"
#include "tests/support/ServerProcess.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>

namespace varnoth::test {

void expectGolden(const std::string& name, std::string actual,
                  const std::vector<std::pair<std::string, std::string>>& replace) {
    for (const auto& [from, to] : replace) {
        actual = text::replaceAll(actual, from, to);
    }
    const std::filesystem::path path = std::filesystem::path(VARNOTH_GOLDEN_DIR) / (name + ".txt");
    if (const char* update = std::getenv("VARNOTH_UPDATE_GOLDEN"); update != nullptr && *update == '1') {
        // CI checks the goldens as committed; a rewrite there would make every check pass.
        if (const char* ci = std::getenv("CI"); ci != nullptr && *ci != '\0') {
            FAIL() << "VARNOTH_UPDATE_GOLDEN=1 refused: goldens are never rewritten in CI";
        }
        if (std::filesystem::is_regular_file(path) && readWholeFile(path) == actual) {
            return;
        }
        // A changed golden fails this run, so only a reviewed file can make a test pass.
        ASSERT_TRUE(writeWholeFile(path, actual)) << "cannot write " << path;
        ADD_FAILURE() << "rewrote tests/golden/" << name << ".txt: review the diff and run again";
        return;
    }
    ASSERT_TRUE(std::filesystem::is_regular_file(path))
        << "no golden file " << path << " (run with VARNOTH_UPDATE_GOLDEN=1 to write it)";
    EXPECT_EQ(actual, readWholeFile(path)) << "differs from " << path;
}

std::string joinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        text += line + "\n";
    }
    return text;
}

std::string unescaped(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
        } else if (text[++at] == 'x') {
            bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            bytes += text[at] == 'n' ? '\n' : text[at] == 'r' ? '\r' : '\t';
        }
    }
    return bytes;
}

void expectTranscript(const std::string& name,
                      const std::function<std::string(const std::string&, const std::string&)>& answer) {
    std::istringstream in(readWholeFile(std::filesystem::path(VARNOTH_GOLDEN_DIR) / (name + ".txt")));
    std::string transcript;
    for (std::string line; std::getline(in, line);) {
        const auto space = line.find(' ');
        if (line.empty() || line.starts_with("#")) {
            transcript += line + "\n";
        } else if (!line.starts_with("= ")) {
            transcript +=
                line + "\n= " +
                answer(line.substr(0, space), space == std::string::npos ? "" : line.substr(space + 1)) +
                "\n";
        }
    }
    expectGolden(name, transcript);
}

std::vector<std::string> caseArguments(const std::string& rest) {
    std::vector<std::string> arguments;
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 3) {
        end = rest.find(" | ", start);
        arguments.push_back(unescaped(rest.substr(start, end - start)));
    }
    return arguments;
}

} // namespace varnoth::test
