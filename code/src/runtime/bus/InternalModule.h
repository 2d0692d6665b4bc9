#pragma once

#include <string>

#include "runtime/bus/Module.h"

namespace VelmoraMobile {

/// A module that ships with the platform (identity, configuration). Adds no operation to
/// Module; same ownership and threading.
class InternalModule : public Module {
public:
    explicit InternalModule(const std::string& name) : Module(name) {}
    ~InternalModule() override = default;
};

}  // namespace VelmoraMobile
