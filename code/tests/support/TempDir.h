#pragma once

#include <string>

namespace VelmoraTest {

/// A fresh folder under the system temp folder, or under `parent` when given (e.g. "/dev/shm": no
/// disk), removed with everything in it on destruction.
class TempDir {
public:
    explicit TempDir(const std::string& parent = std::string());
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace VelmoraTest
