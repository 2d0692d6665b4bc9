#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "runtime/values/DebugInfo.h"
#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {

/// The one error type. Thrown by value, caught by reference; plain and copyable.
class SdkError {
public:
    SdkError(const std::string& code, const std::string& message, const DebugInfo& debug_info);
    SdkError(const SdkError& other);
    SdkError& operator=(const SdkError& other) = default;

    std::string GetCode() const { return code_; }
    std::string GetMessage() const { return message_; }
    const DebugInfo& GetDebugInfo() const { return debug_info_; }
    const std::shared_ptr<const SdkError>& GetNestedError() const { return nested_error_; }

private:
    std::string code_;
    std::string message_;
    DebugInfo debug_info_;
    std::shared_ptr<const SdkError> nested_error_;
};

void ToStringImpl(std::ostream& out, const SdkError& error, const ToStringOptions& options);

}  // namespace VelmoraMobile

/// Throws an SdkError that carries the throwing file, line and stack trace.
#define VELMORA_THROW(code, message)                   \
    throw ::VelmoraMobile::SdkError(                   \
        (code), (message),                             \
        ::VelmoraMobile::DebugInfo(__FILE__, __LINE__, \
                                   ::VelmoraMobile::GetCurrentDebugInfoPrivate::GetCurrentStackTrace()))
