#pragma once

#include <dirent.h>

#include <cstddef>
#include <fstream>
#include <string>

namespace VelmoraTest {

/// How many threads of this process carry one of our names ("velmora-..."): the hub, its
/// executor, hit queue workers, async request workers.
inline size_t OurThreadCount() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
            std::string name;
            std::getline(comm, name);
            count += name.rfind("velmora-", 0) == 0;
        }
        closedir(dir);
    }
    return count;
}

}  // namespace VelmoraTest
