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

} // namespace varnoth::test
