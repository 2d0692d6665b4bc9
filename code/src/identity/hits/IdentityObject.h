#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// One parsed answer of the identity server. Made by the hit processor on the hit queue's
/// thread and handed to the module; nothing keeps it afterwards. No lock: one thread at a time.
class IdentityObject : public Object {
public:
    IdentityObject() = default;

    virtual void SetBlob(const std::string& value);
    virtual const std::string& GetBlob() const;
    virtual void SetMid(const std::string& value);
    virtual const std::string& GetMid() const;
    virtual void SetHint(const std::string& value);
    virtual const std::string& GetHint() const;
    virtual void SetError(const std::string& value);
    virtual const std::string& GetError() const;
    virtual void SetTtl(std::chrono::seconds value);
    virtual std::chrono::seconds GetTtl() const;
    /// Copies `value`; passing the object's own list is a no-op.
    virtual void SetOptOut(const std::vector<std::string>& value);
    virtual const std::vector<std::string>& GetOptOut() const;

    /// Opaque blob of the visitor.
    std::string blob;
    /// The visitor id the server knows.
    std::string mid;
    /// Location hint as decimal text; empty when the server gave none.
    std::string hint;
    /// Text of a server error.
    std::string error;
    /// Time to live of the sync. The reader always sets it; zero until then.
    std::chrono::seconds ttl{0};
    /// The server's opt-out entries; not empty means a global opt-out.
    std::vector<std::string> opt_out;
};

}  // namespace VelmoraMobile
