#pragma once

namespace VelmoraMobile {

/// Options of Module::AddTaskToQueue. A plain value; copy it freely between threads.
struct ModuleTaskOptions {
    /// The task belongs to the module's unregistration: it is still run after OnUnregistered has
    /// returned, and the module is not finished off before it has run.
    bool required_for_unregistration{false};

    constexpr ModuleTaskOptions() = default;
    constexpr explicit ModuleTaskOptions(bool required) : required_for_unregistration(required) {}
};

}  // namespace VelmoraMobile
