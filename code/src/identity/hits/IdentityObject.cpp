#include "identity/hits/IdentityObject.h"

namespace VelmoraMobile {

void IdentityObject::SetBlob(const std::string& value) {
    blob = value;
}

const std::string& IdentityObject::GetBlob() const {
    return blob;
}

void IdentityObject::SetMid(const std::string& value) {
    mid = value;
}

const std::string& IdentityObject::GetMid() const {
    return mid;
}

void IdentityObject::SetHint(const std::string& value) {
    hint = value;
}

const std::string& IdentityObject::GetHint() const {
    return hint;
}

void IdentityObject::SetError(const std::string& value) {
    error = value;
}

const std::string& IdentityObject::GetError() const {
    return error;
}

void IdentityObject::SetTtl(std::chrono::seconds value) {
    ttl = value;
}

std::chrono::seconds IdentityObject::GetTtl() const {
    return ttl;
}

void IdentityObject::SetOptOut(const std::vector<std::string>& value) {
    if (&value == &opt_out) {
        return;
    }
    opt_out = value;
}

const std::vector<std::string>& IdentityObject::GetOptOut() const {
    return opt_out;
}

}  // namespace VelmoraMobile
