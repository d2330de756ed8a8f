#include "DefaultsCommand.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <variant>

#include <fmt/format.h>

#include "PlistText.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nb::nbctl {

namespace {

int fail(int code, const std::string& message) {
    std::fprintf(stderr, "nbctl: %s\n", message.c_str());
    return code;
}

std::optional<Value> parseInteger(const std::string& text) {
    std::int64_t n = 0;
    const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
    if (ec != std::errc() || ptr != text.data() + text.size() || text.empty()) return std::nullopt;
    return Value(n);
}

std::optional<Value> parseReal(const std::string& text) {
    double d = 0;
    const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), d);
    if (ec != std::errc() || ptr != text.data() + text.size() || text.empty()) return std::nullopt;
    return Value(d);
}

std::optional<Value> parseBool(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    if (text == "yes" || text == "true" || text == "1") return Value(true);
    if (text == "no" || text == "false" || text == "0") return Value(false);
    return std::nullopt;
}

// The value of `write DOMAIN KEY ...` from what follows the key, or an error text.
std::variant<Value, std::string> parseWriteValue(const std::vector<std::string>& args) {
    if (args.empty()) return std::string("write needs a value after the key");
    const std::string& type = args[0];
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    if (type == "-array") {
        Value array(Value::Array{});
        for (const std::string& item : rest) array.append(Value(item));
        return array;
    }
    if (type == "-dict") {
        if (rest.size() % 2 != 0) return std::string("-dict needs pairs of key and value");
        Value dict(Value::Dictionary{});
        for (std::size_t i = 0; i < rest.size(); i += 2) dict.set(rest[i], Value(rest[i + 1]));
        return dict;
    }
    using Parser = std::optional<Value> (*)(const std::string&);
    const std::pair<const char*, Parser> scalars[] = {
        {"-string", [](const std::string& s) { return std::optional<Value>(Value(s)); }},
        {"-int", parseInteger},   {"-integer", parseInteger},
        {"-float", parseReal},    {"-double", parseReal},
        {"-bool", [](const std::string& s) { return parseBool(s); }},
        {"-boolean", [](const std::string& s) { return parseBool(s); }},
    };
    for (const auto& [name, parser] : scalars) {
        if (type != name) continue;
        if (rest.size() != 1) return fmt::format("{} takes exactly one value", name);
        if (auto v = parser(rest[0])) return *v;
        return fmt::format("'{}' is not a valid value for {}", rest[0], name);
    }
    if (!type.empty() && type[0] == '-' && !parseReal(type)) return fmt::format("unknown value type '{}'", type);
    if (args.size() != 1) return std::string("write takes one value; quote it or give a type such as -array");
    return Value(type);
}

}  // namespace

DefaultsCommand::DefaultsCommand(CLI::App& app, const std::filesystem::path& preferencesFolder)
    : folder_(preferencesFolder) {
    command_ = app.add_subcommand("defaults", "Read and write settings suites");
    command_->require_subcommand(1);

    domains_ = command_->add_subcommand("domains", "List the settings suites");

    read_ = command_->add_subcommand("read", "Print a whole suite or one key");
    read_->add_option("domain", domain_, "Suite name")->required();
    read_->add_option("key", key_, "Key");
    read_->add_flag("--json", json_, "Print JSON for scripts");

    // Values such as -int 3 or -5 are not options: everything after the subcommand is taken as it is.
    write_ = command_->add_subcommand("write", "Write one key: DOMAIN KEY [-string|-int|-float|-bool] VALUE, "
                                               "DOMAIN KEY -array V..., DOMAIN KEY -dict K V ...");
    write_->prefix_command();

    delete_ = command_->add_subcommand("delete", "Delete one key, or the whole suite");
    delete_->add_option("domain", domain_, "Suite name")->required();
    delete_->add_option("key", key_, "Key");
}

int DefaultsCommand::run() const {
    if (domains_->parsed()) return domains();
    if (read_->parsed()) return read();
    if (write_->parsed()) return write();
    return remove();
}

bool DefaultsCommand::domainExists(const std::string& domain) const {
    const auto names = UserDefaults::persistentDomainNames(folder_);
    return std::find(names.begin(), names.end(), domain) != names.end();
}

int DefaultsCommand::domains() const {
    for (const std::string& name : UserDefaults::persistentDomainNames(folder_)) std::printf("%s\n", name.c_str());
    return 0;
}

int DefaultsCommand::read() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    UserDefaults defaults(domain_, folder_);
    Value value = defaults.persistentDomain();
    if (!key_.empty()) {
        value = Value(value[key_]);
        if (value.isAbsent()) {
            return fail(1, fmt::format("The domain/default pair of ({}, {}) does not exist", domain_, key_));
        }
    }
    if (json_) {
        const auto text = Json::encode(PlistText::jsonSafe(value), Json::Style::Pretty);
        if (!text) return fail(1, "the value cannot be written as JSON");
        std::printf("%s\n", text->c_str());
    } else {
        std::printf("%s\n", PlistText::format(value).c_str());
    }
    return 0;
}

int DefaultsCommand::write() const {
    const std::vector<std::string> args = write_->remaining();
    if (args.size() < 3) return fail(2, "usage: nbctl defaults write DOMAIN KEY [-TYPE] VALUE");
    auto parsed = parseWriteValue({args.begin() + 2, args.end()});
    if (auto* error = std::get_if<std::string>(&parsed)) return fail(2, *error);
    UserDefaults defaults(args[0], folder_);
    if (!defaults.setObject(std::get<Value>(parsed), args[1])) {
        return fail(1, fmt::format("could not write {} in {}", args[1], args[0]));
    }
    return 0;
}

int DefaultsCommand::remove() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    UserDefaults defaults(domain_, folder_);
    if (key_.empty()) {
        return defaults.removePersistentDomain() ? 0 : fail(1, fmt::format("could not delete {}", domain_));
    }
    if (!defaults.persistentDomain().contains(key_)) {
        return fail(1, fmt::format("The domain/default pair of ({}, {}) does not exist", domain_, key_));
    }
    return defaults.removeObjectForKey(key_) ? 0 : fail(1, fmt::format("could not delete {}", key_));
}

}  // namespace nb::nbctl
