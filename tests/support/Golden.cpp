#include "tests/support/Golden.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace varnoth::test {

void expectGolden(const std::string& name, std::string actual,
                  const std::vector<std::pair<std::string, std::string>>& replace) {
    for (const auto& [from, to] : replace) {
        for (auto at = actual.find(from); !from.empty() && at != std::string::npos;
             at = actual.find(from, at + to.size())) {
            actual.replace(at, from.size(), to);
        }
    }
    const std::filesystem::path path = std::filesystem::path(VARNOTH_GOLDEN_DIR) / (name + ".txt");
    if (const char* update = std::getenv("VARNOTH_UPDATE_GOLDEN"); update != nullptr && *update == '1') {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << actual;
        return;
    }
    std::ifstream in(path, std::ios::binary);
    ASSERT_TRUE(in) << "no golden file " << path << " (run with VARNOTH_UPDATE_GOLDEN=1 to write it)";
    std::stringstream expected;
    expected << in.rdbuf();
    EXPECT_EQ(actual, expected.str()) << "differs from " << path;
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
    std::ifstream in(std::filesystem::path(VARNOTH_GOLDEN_DIR) / (name + ".txt"));
    ASSERT_TRUE(in) << name;
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
