#pragma once

#include <functional>

#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

// Guards: an SdkError from `body` goes to `handler`. Any other exception is turned into
// an SdkError "std.logic_error.invalid_argument" (or "std.unknown") so nothing leaves a guard.

void TryCatch(const std::function<void()>& body, const std::function<void(SdkError&)>& handler);

/// `finally_body` runs last in every case, also when `handler` throws; what the handler threw
/// leaves after it.
void TryCatchFinally(const std::function<void()>& body, const std::function<void(SdkError&)>& handler,
                     const std::function<void()>& finally_body);

void TrySwallow(const std::function<void()>& body);

}  // namespace VelmoraMobile
