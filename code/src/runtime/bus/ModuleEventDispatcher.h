#pragma once

#include "runtime/bus/ModuleEventDispatcherBase.h"

namespace VelmoraMobile {

/// A dispatcher of a module of type TModule; same threading as ModuleEventDispatcherBase.
template <typename TModule>
class ModuleEventDispatcher : public ModuleEventDispatcherBase {
public:
    ~ModuleEventDispatcher() override = default;
};

}  // namespace VelmoraMobile
