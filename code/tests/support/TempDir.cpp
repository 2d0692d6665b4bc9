#include "tests/support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace VelmoraTest {

TempDir::TempDir(const std::string& parent) {
    const std::filesystem::path folder =
        parent.empty() ? std::filesystem::temp_directory_path() : std::filesystem::path(parent);
    std::string pattern = (folder / "velmora-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace VelmoraTest
