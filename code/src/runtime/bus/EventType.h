#pragma once

#include <memory>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The type of an event: a registry of named singletons. Two types are the same exactly when
/// their pointers are equal; compare them by pointer, never by name. The constants live as long
/// as the process; every member may be used from any thread.
class EventType : public Object {
public:
    static const std::shared_ptr<EventType> HUB;               ///< events of the hub itself
    static const std::shared_ptr<EventType> CONFIGURATION;     ///< the configuration extension
    static const std::shared_ptr<EventType> IDENTITY;          ///< the identity module
    static const std::shared_ptr<EventType> GENERIC_IDENTITY;  ///< identifier syncs from outside
    static const std::shared_ptr<EventType> ANALYTICS;         ///< the analytics extension
    static const std::shared_ptr<EventType> ZUMA;              ///< the audience extension

    /// The one type of that name, made on first request.
    static std::shared_ptr<EventType> Get(const std::string& name);

    const std::string& GetName() const { return name_; }
    std::string ToStringImpl(const ToStringOptions& options) const override;

private:
    explicit EventType(const std::string& name) : name_(name) {}

    const std::string name_;
};

}  // namespace VelmoraMobile
