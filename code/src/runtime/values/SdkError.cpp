#include "runtime/values/SdkError.h"

#include <ostream>

namespace VelmoraMobile {

SdkError::SdkError(const std::string& code, const std::string& message, const DebugInfo& debug_info)
    : code_(code), message_(message), debug_info_(debug_info) {}

SdkError::SdkError(const SdkError& other)
    : code_(other.code_),
      message_(other.message_),
      debug_info_(other.debug_info_.file, other.debug_info_.line, other.debug_info_.stack_trace),
      nested_error_(other.nested_error_) {}

void ToStringImpl(std::ostream& out, const SdkError& error, const ToStringOptions&) {
    out << "SdkError(" << error.GetCode() << ": " << error.GetMessage();
    if (!error.GetDebugInfo().file.empty()) {
        out << " at " << error.GetDebugInfo().file << ":" << error.GetDebugInfo().line;
    }
    out << ")";
}

}  // namespace VelmoraMobile
