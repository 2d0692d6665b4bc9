#include "runtime/bus/EventNames.h"

#include <functional>
#include <mutex>
#include <set>

namespace VelmoraMobile {

const std::string* EventNames::Intern(std::string_view name) {
    // Never destroyed: events made by static destructors still point at their names.
    static std::mutex* const mutex = new std::mutex();
    static std::set<std::string, std::less<>>* const names = new std::set<std::string, std::less<>>();
    std::lock_guard<std::mutex> lock(*mutex);
    auto found = names->find(name);
    if (found != names->end()) {
        return &*found;
    }
    if (names->size() >= MAX_NAMES) {
        return nullptr;
    }
    return &*names->emplace(name).first;
}

}  // namespace VelmoraMobile
