#include "tests/support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace VelmoraTest {

TempDir::TempDir(const std::string& parent) {
    const std::filesystem::path folder =
        parent.empty() ? std::filesystem::temp_directory_path() : std::filesystem::path(parent);
    std::string pattern = (folder / "velmora-test-XXXXXX").string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = buffer.data();
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace VelmoraTest
