#include <iostream>

#include "tools/cli/Commands.h"

namespace VelmoraCli {

void Emit(const GlobalOptions& options, const nlohmann::json& json, const std::string& text) {
    if (options.json) {
        std::cout << json.dump(2) << std::endl;
    } else {
        std::cout << text << std::flush;
    }
}

}  // namespace VelmoraCli
