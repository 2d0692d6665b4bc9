#include "runtime/values/ThreadName.h"

#include <pthread.h>

#include <string>

namespace VelmoraMobile {

void NameThisThread(const char* role) {
    std::string name = std::string("velmora-") + (role != nullptr ? role : "");
    if (name.size() > 15) {
        name.resize(15);
    }
    pthread_setname_np(pthread_self(), name.c_str());
}

}  // namespace VelmoraMobile
