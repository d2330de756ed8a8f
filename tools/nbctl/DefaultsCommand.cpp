#include "DefaultsCommand.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <variant>

#include <fmt/format.h>

#include "NumberArgument.h"
#include "PlistText.h"
#include "nbbase/foundation/AtomicFile.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nb::nbctl {

namespace {

int fail(int code, const std::string& message) {
    std::fprintf(stderr, "nbctl: %s\n", message.c_str());
    return code;
}

std::string missingPair(const std::string& domain, const std::string& key) {
    return fmt::format("The domain/default pair of ({}, {}) does not exist", domain, key);
}

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

std::optional<Value> parseBool(const std::string& text) {
    const std::string word = lowered(text);
    if (word == "yes" || word == "true" || word == "1") return Value(true);
    if (word == "no" || word == "false" || word == "0") return Value(false);
    return std::nullopt;
}

// A typed scalar from its text, or why it was refused.
using Scalar = std::variant<Value, std::string>;

Scalar integerValue(const std::string& text) {
    auto n = NumberArgument::integer(text);
    if (auto* reason = std::get_if<std::string>(&n)) return *reason;
    return Value(std::get<std::int64_t>(n));
}

Scalar realValue(const std::string& text) {
    auto d = NumberArgument::real(text);
    if (auto* reason = std::get_if<std::string>(&d)) return *reason;
    return Value(std::get<double>(d));
}

Scalar boolValue(const std::string& text) {
    if (auto b = parseBool(text)) return *b;
    return fmt::format("'{}' is not a boolean: use YES, NO, true, false, 1 or 0", text);
}

Scalar stringValue(const std::string& text) { return Value(text); }

// The value of `write DOMAIN KEY ...` from what follows the key, or an error text. -array-add and
// -dict-add are not handled here: they need the stored value.
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
    using Parser = Scalar (*)(const std::string&);
    const std::pair<const char*, Parser> scalars[] = {
        {"-string", stringValue}, {"-int", integerValue},  {"-integer", integerValue}, {"-float", realValue},
        {"-double", realValue},   {"-bool", boolValue},    {"-boolean", boolValue},
    };
    for (const auto& [name, parser] : scalars) {
        if (type != name) continue;
        if (rest.size() != 1) return fmt::format("{} takes exactly one value", name);
        Scalar value = parser(rest[0]);
        if (auto* reason = std::get_if<std::string>(&value)) return fmt::format("{}: {}", name, *reason);
        return std::get<Value>(value);
    }
    // "-5" and "-.5" are values; "-colour" is a misspelt type, not a string to store.
    if (type.size() > 1 && type[0] == '-' && std::isalpha(static_cast<unsigned char>(type[1]))) {
        return fmt::format("unknown value type '{}'", type);
    }
    if (args.size() != 1) return std::string("write takes one value; quote it or give a type such as -array");
    return Value(type);
}

// Whether WORD (already lower-case) is in the value: strings, integers and reals as their text, and the
// keys and items of containers at any depth.
bool holds(const Value& value, const std::string& word) {
    switch (value.kind()) {
        case Value::Kind::String: return lowered(*value.asString()).find(word) != std::string::npos;
        case Value::Kind::Integer:
        case Value::Kind::Real: return value.stringValue().find(word) != std::string::npos;
        case Value::Kind::Array:
            return std::any_of(value.asArray()->begin(), value.asArray()->end(),
                               [&](const Value& item) { return holds(item, word); });
        case Value::Kind::Dictionary:
            return std::any_of(value.asDictionary()->begin(), value.asDictionary()->end(), [&](const auto& entry) {
                return lowered(entry.first).find(word) != std::string::npos || holds(entry.second, word);
            });
        default: return false;
    }
}

// "a string", "an integer".
std::string withArticle(const char* type) {
    return fmt::format("{} {}", std::strchr("aeiou", type[0]) != nullptr ? "an" : "a", type);
}

// Reads FILE, or standard input for "-", into bytes; refuses more than a property list may hold.
// Answers why it failed, or nullopt.
std::optional<std::string> readInput(const std::string& file, std::string& bytes) {
    const std::string name = file == "-" ? "standard input" : file;
    const auto tooLarge = [&] { return fmt::format("{}: larger than {} bytes", name, PropertyList::kMaxFileSize); };
    if (file == "-") {
        std::array<char, 65536> buffer{};
        for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), stdin)) > 0;) {
            bytes.append(buffer.data(), n);
            if (bytes.size() > PropertyList::kMaxFileSize) return tooLarge();
        }
        if (std::ferror(stdin)) return fmt::format("cannot read standard input: {}", std::strerror(errno));
        return std::nullopt;
    }
    std::error_code ec;
    const auto status = std::filesystem::status(file, ec);
    if (!std::filesystem::exists(status)) return fmt::format("{}: no such file", file);
    if (!std::filesystem::is_regular_file(status)) return fmt::format("{}: not a regular file", file);
    if (std::filesystem::file_size(file, ec) > PropertyList::kMaxFileSize) return tooLarge();
    std::ifstream in(file, std::ios::binary);
    if (!in) return fmt::format("{}: {}", file, std::strerror(errno));
    bytes.assign(std::istreambuf_iterator<char>(in), {});
    return std::nullopt;
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

    readType_ = command_->add_subcommand("read-type", "Print the type of one key's value");
    readType_->add_option("domain", domain_, "Suite name")->required();
    readType_->add_option("key", key_, "Key")->required();

    // Values such as -int 3 or -5 are not options: everything after the subcommand is taken as it is.
    write_ = command_->add_subcommand("write", "Write one key: DOMAIN KEY [-string|-int|-float|-bool] VALUE, "
                                               "DOMAIN KEY -array V..., DOMAIN KEY -dict K V ..., "
                                               "DOMAIN KEY -array-add V..., DOMAIN KEY -dict-add K V ...");
    write_->prefix_command();

    rename_ = command_->add_subcommand("rename", "Move a value to another key of the same suite");
    rename_->add_option("domain", domain_, "Suite name")->required();
    rename_->add_option("old", key_, "Key holding the value")->required();
    rename_->add_option("new", newKey_, "Key it moves to")->required();

    delete_ = command_->add_subcommand("delete", "Delete one key, or the whole suite");
    delete_->add_option("domain", domain_, "Suite name")->required();
    delete_->add_option("key", key_, "Key");

    find_ = command_->add_subcommand("find", "Search every suite's keys and values for a word, ignoring case");
    find_->add_option("word", word_, "Text to look for")->required();

    export_ = command_->add_subcommand("export", "Write a suite as an XML property list");
    export_->add_option("domain", domain_, "Suite name")->required();
    export_->add_option("file", file_, "File to write, '-' for standard output")->required();

    import_ = command_->add_subcommand("import", "Store every key of a property list holding a dictionary");
    import_->add_option("domain", domain_, "Suite name")->required();
    import_->add_option("file", file_, "XML or binary property list, '-' for standard input")->required();
}

int DefaultsCommand::run() const {
    if (domains_->parsed()) return domains();
    if (read_->parsed()) return read();
    if (readType_->parsed()) return readType();
    if (write_->parsed()) return write();
    if (rename_->parsed()) return rename();
    if (find_->parsed()) return find();
    if (export_->parsed()) return exportDomain();
    if (import_->parsed()) return importDomain();
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
        if (value.isAbsent()) return fail(1, missingPair(domain_, key_));
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

int DefaultsCommand::readType() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    const char* type = PlistText::typeName(UserDefaults(domain_, folder_).objectForKey(key_));
    if (type == nullptr) return fail(1, missingPair(domain_, key_));
    std::printf("Type is %s\n", type);
    return 0;
}

int DefaultsCommand::write() const {
    const std::vector<std::string> args = write_->remaining();
    if (args.size() < 3) return fail(2, "usage: nbctl defaults write DOMAIN KEY [-TYPE] VALUE");
    const std::string& domain = args[0];
    const std::string& key = args[1];
    const std::string& type = args[2];
    const std::vector<std::string> values(args.begin() + 3, args.end());

    Value value;
    if (type == "-array-add" || type == "-dict-add") {
        const bool toArray = type == "-array-add";
        if (!toArray && values.size() % 2 != 0) return fail(2, "-dict-add needs pairs of key and value");
        UserDefaults defaults(domain, folder_);
        value = defaults.objectForKey(key);
        if (value.isAbsent()) value = toArray ? Value(Value::Array{}) : Value(Value::Dictionary{});
        if (toArray ? !value.isArray() : !value.isDictionary()) {
            return fail(1, fmt::format("{} in {} holds {}, not {}: nothing changed", key, domain,
                                       withArticle(PlistText::typeName(value)), toArray ? "an array" : "a dictionary"));
        }
        for (std::size_t i = 0; i < values.size(); i += toArray ? 1 : 2) {
            if (toArray) {
                value.append(Value(values[i]));
            } else {
                value.set(values[i], Value(values[i + 1]));
            }
        }
        if (!defaults.setObject(value, key)) return fail(1, fmt::format("could not write {} in {}", key, domain));
        return 0;
    }

    auto parsed = parseWriteValue({args.begin() + 2, args.end()});
    if (auto* error = std::get_if<std::string>(&parsed)) return fail(2, *error);
    UserDefaults defaults(domain, folder_);
    if (!defaults.setObject(std::get<Value>(parsed), key)) {
        return fail(1, fmt::format("could not write {} in {}", key, domain));
    }
    return 0;
}

int DefaultsCommand::rename() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    UserDefaults defaults(domain_, folder_);
    const Value value = defaults.objectForKey(key_);
    if (value.isAbsent()) return fail(1, missingPair(domain_, key_));
    if (key_ == newKey_) return 0;
    const Value previous = defaults.objectForKey(newKey_);
    // NEW before OLD: a crash between the two commits duplicates the value rather than losing it.
    if (!defaults.setObject(value, newKey_)) return fail(1, fmt::format("could not write {} in {}", newKey_, domain_));
    if (!defaults.removeObjectForKey(key_)) {
        // An absent earlier value removes NEW again.
        const bool restored = defaults.setObject(previous, newKey_);
        return fail(1, fmt::format("could not remove {} from {}; {}", key_, domain_,
                                   restored ? "nothing changed" : fmt::format("its value is under {} too", newKey_)));
    }
    return 0;
}

int DefaultsCommand::remove() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    UserDefaults defaults(domain_, folder_);
    if (key_.empty()) {
        return defaults.removePersistentDomain() ? 0 : fail(1, fmt::format("could not delete {}", domain_));
    }
    if (!defaults.persistentDomain().contains(key_)) return fail(1, missingPair(domain_, key_));
    return defaults.removeObjectForKey(key_) ? 0 : fail(1, fmt::format("could not delete {}", key_));
}

int DefaultsCommand::find() const {
    const std::string word = lowered(word_);
    bool found = false;
    for (const std::string& domain : UserDefaults::persistentDomainNames(folder_)) {
        const Value stored = UserDefaults(domain, folder_).persistentDomain();
        if (!stored.isDictionary()) continue;
        Value matches(Value::Dictionary{});
        for (const auto& [key, value] : *stored.asDictionary()) {
            if (lowered(key).find(word) != std::string::npos || holds(value, word)) matches.set(key, value);
        }
        if (matches.size() == 0) continue;
        found = true;
        std::printf("Found %zu keys in domain '%s': %s\n", matches.size(), domain.c_str(),
                    PlistText::format(matches).c_str());
    }
    return found ? 0 : fail(1, fmt::format("No key or value containing '{}'", word_));
}

int DefaultsCommand::exportDomain() const {
    if (!domainExists(domain_)) return fail(1, fmt::format("Domain {} does not exist", domain_));
    const auto bytes = PropertyList::write(UserDefaults(domain_, folder_).persistentDomain(), PropertyList::Format::Xml);
    if (!bytes) return fail(1, fmt::format("{} cannot be written as a property list", domain_));
    if (file_ == "-") {
        const bool written = std::fwrite(bytes->data(), 1, bytes->size(), stdout) == bytes->size();
        if (!written || std::fflush(stdout) != 0) {
            return fail(1, fmt::format("cannot write to standard output: {}", std::strerror(errno)));
        }
        return 0;
    }
    const std::string_view text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    if (auto reason = AtomicFile::write(file_, text)) return fail(1, *reason);
    return 0;
}

int DefaultsCommand::importDomain() const {
    std::string bytes;
    if (auto reason = readInput(file_, bytes)) return fail(1, *reason);
    const std::string source = file_ == "-" ? "standard input" : file_;
    const Value root = PropertyList::read(bytes);
    if (root.isAbsent()) return fail(1, fmt::format("{}: not a property list", source));
    if (!root.isDictionary()) {
        return fail(1, fmt::format("{}: the property list holds {}, not a dictionary", source,
                                   withArticle(PlistText::typeName(root))));
    }
    // What a suite stores is a binary property list: a dictionary that cannot be one would fail
    // part-way, so it is refused before anything is stored.
    if (!PropertyList::write(root, PropertyList::Format::Binary)) {
        return fail(1, fmt::format("{}: holds a value a settings suite cannot store", source));
    }
    UserDefaults defaults(domain_, folder_);
    std::size_t stored = 0;
    for (const auto& [key, value] : *root.asDictionary()) {
        if (!defaults.setObject(value, key)) {
            return fail(1, fmt::format("could not write {} in {}; stored {} of {} keys before it", key, domain_, stored,
                                       root.size()));
        }
        ++stored;
    }
    return 0;
}

}  // namespace nb::nbctl
