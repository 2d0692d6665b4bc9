#include "runtime/values/DebugInfo.h"

#include <cxxabi.h>
#include <execinfo.h>

#include <cstdlib>
#include <sstream>

namespace VelmoraMobile {

std::string GetCurrentDebugInfoPrivate::GetCurrentStackTrace() {
    void* frames[48];
    int count = backtrace(frames, 48);
    char** symbols = backtrace_symbols(frames, count);
    if (symbols == nullptr) {
        return std::string();
    }
    std::ostringstream out;
    // Frame 0 is this function.
    for (int i = 1; i < count; ++i) {
        out << "#" << (i - 1) << " " << symbols[i] << "\n";
    }
    std::free(symbols);
    return out.str();
}

}  // namespace VelmoraMobile
