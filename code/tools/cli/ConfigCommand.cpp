#include <fstream>
#include <memory>
#include <sstream>

#include "runtime/values/StringUtils.h"
#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"

namespace VelmoraCli {

using namespace VelmoraMobile;

namespace {

struct ConfigArguments {
    std::vector<std::string> changes;
    std::string file;
};

/// "true" and "false" are booleans, "null" or nothing removes the key, the rest is text.
std::shared_ptr<Variant> ValueFromText(const std::string& text) {
    if (text == "true" || text == "false") return Variant::FromBoolean(text == "true");
    if (text.empty() || text == "null") return Variant::FromNull();
    return Variant::FromString(text);
}

std::shared_ptr<Variant> ValueFromJson(const std::string& file, const std::string& key, const nlohmann::json& value) {
    switch (value.type()) {
        case nlohmann::json::value_t::string: return Variant::FromString(value.get<std::string>());
        case nlohmann::json::value_t::boolean: return Variant::FromBoolean(value.get<bool>());
        case nlohmann::json::value_t::number_integer:
        case nlohmann::json::value_t::number_unsigned: return Variant::FromLong(value.get<int64_t>());
        case nlohmann::json::value_t::number_float: return Variant::FromDouble(value.get<double>());
        case nlohmann::json::value_t::null: return Variant::FromNull();
        default: break;
    }
    throw CliError(EXIT_FAILURE_NAMED, file + ": the value of \"" + key + "\" is not a string, number or boolean");
}

/// The flat JSON object in `file`; CliError exit 1 (before anything changes) when it is not one.
Variant::VariantMap ReadConfigurationFile(const std::string& file) {
    std::ifstream in(file);
    if (!in) {
        throw CliError(EXIT_FAILURE_NAMED, "cannot read the configuration file " + file);
    }
    nlohmann::json json = nlohmann::json::parse(in, nullptr, false);
    if (json.is_discarded() || !json.is_object()) {
        throw CliError(EXIT_FAILURE_NAMED, "the configuration file " + file + " is not a JSON object");
    }
    Variant::VariantMap changes;
    for (const auto& entry : json.items()) {
        changes[entry.key()] = ValueFromJson(file, entry.key(), entry.value());
    }
    return changes;
}

nlohmann::json ToJson(const Variant& value) {
    std::string text;
    bool flag = false;
    int64_t number = 0;
    double real = 0;
    if (value.GetString(text)) return text;
    if (value.GetBoolean(flag)) return flag;
    if (value.GetLong(number)) return number;
    if (value.GetDouble(real)) return real;
    return StringUtils::ToString(value);
}

int RunConfig(const GlobalOptions& options, const ConfigArguments& arguments) {
    Variant::VariantMap changes;
    if (!arguments.file.empty()) {
        changes = ReadConfigurationFile(arguments.file);
    }
    for (const auto& change : arguments.changes) {
        const size_t equals = change.find('=');
        changes[change.substr(0, equals)] = ValueFromText(change.substr(equals + 1));
    }
    CliSession session(options);
    if (!changes.empty()) {
        session.Core().Configuration()->UpdateConfiguration(changes);
        session.AwaitConfiguration(changes);
    }
    nlohmann::json json = nlohmann::json::object();
    std::ostringstream text;
    for (const auto& entry : session.Configuration()->GetEntries()) {
        if (!entry.second) continue;
        json[entry.first] = ToJson(*entry.second);
        const nlohmann::json value = ToJson(*entry.second);
        text << entry.first << " = " << (value.is_string() ? value.get<std::string>() : value.dump()) << "\n";
    }
    Emit(options, json, text.str());
    return EXIT_OK;
}

}  // namespace

void AddConfigCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto arguments = std::make_shared<ConfigArguments>();
    CLI::App* config = app.add_subcommand(
        "config", "Show or change the configuration kept in the data folder (true/false are booleans, null removes)");
    config->add_option("changes", arguments->changes, "Changes: KEY=VALUE")
        ->type_name("KEY=VALUE")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                const size_t equals = text.find('=');
                if (equals == std::string::npos) return "'" + text + "' is not KEY=VALUE (no '=')";
                if (equals == 0) return "'" + text + "' has no key before '='";
                return "";
            },
            "", "KEY=VALUE"));
    config->add_option("--file", arguments->file, "A flat JSON object of keys to apply")->type_name("FILE");
    table[config] = [&options, arguments] { return RunConfig(options, *arguments); };
}

}  // namespace VelmoraCli
