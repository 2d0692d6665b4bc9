#include "runtime/services/LocaleNameFacet.h"

namespace VelmoraMobile {

std::locale::id LocaleNameFacet::id;

std::locale LocaleNameFacet::Attach(const std::locale& base, const std::string& name) {
    // The locale takes ownership of the facet (reference count 0).
    return std::locale(base, new LocaleNameFacet(name));
}

std::string LocaleNameFacet::NameOf(const std::locale& locale) {
    if (!std::has_facet<LocaleNameFacet>(locale)) {
        return "";
    }
    return std::use_facet<LocaleNameFacet>(locale).Name();
}

}  // namespace VelmoraMobile
