#pragma once

#include <locale>
#include <string>

namespace VelmoraMobile {

/// Carries a locale's language and region ("en_US") inside a std::locale, so the name
/// survives on machines where that locale is not installed and std::locale("en_US") would
/// throw. Immutable; safe to read from any thread.
class LocaleNameFacet : public std::locale::facet {
public:
    static std::locale::id id;

    explicit LocaleNameFacet(const std::string& name) : std::locale::facet(0), name_(name) {}

    const std::string& Name() const { return name_; }

    /// `base` with the facet carrying `name` added.
    static std::locale Attach(const std::locale& base, const std::string& name);

    /// The carried name, "" when the locale has no such facet.
    static std::string NameOf(const std::locale& locale);

private:
    std::string name_;
};

}  // namespace VelmoraMobile
