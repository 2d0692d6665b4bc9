#pragma once

#include <memory>

#include "runtime/bus/Module.h"
#include "runtime/bus/ModuleEventListenerBase.h"

namespace VelmoraMobile {

/// A listener of a module of type TModule; same threading as ModuleEventListenerBase.
template <typename TModule>
class ModuleEventListener : public ModuleEventListenerBase {
public:
    ~ModuleEventListener() override = default;

    /// The module as a TModule; null when it is gone or is no TModule.
    std::shared_ptr<TModule> GetParentModule() {
        return std::dynamic_pointer_cast<TModule>(ModuleEventListenerBase::GetParentModule());
    }
};

}  // namespace VelmoraMobile
