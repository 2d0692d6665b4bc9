#pragma once

#include <memory>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The source of an event: a registry of named singletons. Two sources are the same exactly when
/// their pointers are equal; compare them by pointer, never by name. The constants live as long
/// as the process; every member may be used from any thread.
class EventSource : public Object {
public:
    static const std::shared_ptr<EventSource> BOOTED;             ///< the hub has booted
    static const std::shared_ptr<EventSource> SHARED_STATE;       ///< a shared state has changed
    static const std::shared_ptr<EventSource> REQUEST_CONTENT;    ///< a request that carries content
    static const std::shared_ptr<EventSource> REQUEST_IDENTITY;   ///< a request for identity data
    static const std::shared_ptr<EventSource> RESPONSE_CONTENT;   ///< a response that carries content
    static const std::shared_ptr<EventSource> RESPONSE_IDENTITY;  ///< a response with identity data

    /// The one source of that name, made on first request.
    static std::shared_ptr<EventSource> Get(const std::string& name);

    const std::string& GetName() const { return name_; }
    std::string ToStringImpl(const ToStringOptions& options) const override;

private:
    explicit EventSource(const std::string& name) : name_(name) {}

    const std::string name_;
};

}  // namespace VelmoraMobile
