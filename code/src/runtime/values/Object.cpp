#include "runtime/values/Object.h"

#include <sstream>
#include <typeinfo>

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

ToStringOptions::ToStringOptions()
    : max_depth(StringUtils::DEFAULT_MAX_DEPTH),
      max_elements(StringUtils::DEFAULT_MAX_ELEMENTS),
      max_string_length(StringUtils::DEFAULT_MAX_STRING_LENGTH) {}

bool Object::Equals(const ObjectInterface& other) const {
    return static_cast<const ObjectInterface*>(this) == &other;
}

std::shared_ptr<ObjectInterface> Object::SharedPtrToThisObjectInterface() {
    std::shared_ptr<Object> self = weak_from_this().lock();
    return self;
}

std::string Object::ToStringImpl(const ToStringOptions&) const {
    std::ostringstream out;
    out << typeid(*this).name() << "@" << static_cast<const void*>(this);
    return out.str();
}

}  // namespace VelmoraMobile
