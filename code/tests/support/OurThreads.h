#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

namespace VelmoraTest {

/// How many threads of this process carry one of our names ("velmora-..."): the hub, its
/// executor, hit queue workers, async request workers.
inline size_t OurThreadCount() {
    size_t count = 0;
    std::error_code error;  // a thread that ends meanwhile has no "comm" left to read, and is not counted
    for (std::filesystem::directory_iterator task("/proc/self/task", error), end; !error && task != end;
         task.increment(error)) {
        std::string name;
        std::getline(std::ifstream(task->path() / "comm"), name);
        count += name.rfind("velmora-", 0) == 0;
    }
    return count;
}

}  // namespace VelmoraTest
