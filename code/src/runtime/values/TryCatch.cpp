#include "runtime/values/TryCatch.h"

#include <stdexcept>

namespace VelmoraMobile {

namespace {

SdkError FromStd(const char* code, const char* what) {
    return SdkError(code, what, DebugInfo());
}

}  // namespace

void TryCatch(const std::function<void()>& body, const std::function<void(SdkError&)>& handler) {
    try {
        body();
    } catch (SdkError& error) {
        handler(error);
    } catch (const std::invalid_argument& e) {
        SdkError error = FromStd("std.logic_error.invalid_argument", e.what());
        handler(error);
    } catch (const std::out_of_range& e) {
        SdkError error = FromStd("std.logic_error.out_of_range", e.what());
        handler(error);
    } catch (const std::logic_error& e) {
        SdkError error = FromStd("std.logic_error", e.what());
        handler(error);
    } catch (const std::exception& e) {
        SdkError error = FromStd("std.exception", e.what());
        handler(error);
    } catch (...) {
        SdkError error = FromStd("std.unknown", "unknown exception");
        handler(error);
    }
}

void TryCatchFinally(const std::function<void()>& body, const std::function<void(SdkError&)>& handler,
                     const std::function<void()>& finally_body) {
    // The cleanup runs also when the handler itself throws; that exception then goes on.
    try {
        TryCatch(body, handler);
    } catch (...) {
        finally_body();
        throw;
    }
    finally_body();
}

void TrySwallow(const std::function<void()>& body) {
    TryCatch(body, [](SdkError&) {});
}

}  // namespace VelmoraMobile
