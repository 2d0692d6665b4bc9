#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "identity/api/IdentityPublicApi.h"
#include "identity/ids/VisitorId.h"
#include "tests/support/WaitFor.h"

namespace VelmoraTest {

/// What callbacks of the identity API received, on whatever thread they ran. Thread-safe; hold
/// it in a shared_ptr so a late callback never outlives it.
template <typename T>
class Answers : public std::enable_shared_from_this<Answers<T>> {
public:
    void Add(const T& value) {
        std::lock_guard<std::mutex> lock(mutex_);
        values_.push_back(value);
    }
    std::vector<T> Values() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return values_;
    }
    size_t Count() const { return Values().size(); }
    bool WaitForCount(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(20)) const {
        return WaitFor([&] { return Count() >= count; }, timeout);
    }
    /// The first value, or T() when none came within the wait.
    T First() const {
        WaitForCount(1);
        auto values = Values();
        return values.empty() ? T() : values.front();
    }

    std::function<void(std::string)> StringCallback() {
        auto self = this->shared_from_this();
        return [self](std::string value) { self->Add(value); };
    }
    VelmoraMobile::IdentityPublicApi::VisitorIdsCallback IdsCallback() {
        auto self = this->shared_from_this();
        return [self](const std::vector<std::shared_ptr<VelmoraMobile::VisitorId>>& ids) { self->Add(ids); };
    }

private:
    mutable std::mutex mutex_;
    std::vector<T> values_;
};

using StringAnswers = Answers<std::string>;
using IdAnswers = Answers<std::vector<std::shared_ptr<VelmoraMobile::VisitorId>>>;

}  // namespace VelmoraTest
