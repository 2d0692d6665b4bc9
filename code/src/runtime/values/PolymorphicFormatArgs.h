#pragma once

#include <cstddef>
#include <ostream>
#include <tuple>

#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {
namespace StringUtilsInternal {

/// The arguments of one format call, seen through one closed interface.
class PolymorphicFormatArgs {
public:
    virtual ~PolymorphicFormatArgs() = default;
    virtual size_t GetSize() const = 0;
    /// Writes argument `index` to `stream`; an index past the end writes nothing.
    virtual void CallToString(size_t index, std::ostream& stream, const ToStringOptions& options) const = 0;
};

}  // namespace StringUtilsInternal
}  // namespace VelmoraMobile
