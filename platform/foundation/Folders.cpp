#include "nbbase/foundation/Folders.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace {

namespace fs = std::filesystem;

std::optional<std::string> readVariable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

// "a//b/./c/" becomes "a/b/c"; the root stays "/".
std::string normalised(const std::string& path) {
    std::string result = fs::path(path).lexically_normal().string();
    while (result.size() > 1 && result.back() == '/') result.pop_back();
    return result;
}

// An absolute, normalised path, or nullopt for an unset, empty or relative value.
std::optional<std::string> absolutePath(const std::optional<std::string>& value) {
    if (!value || value->empty() || value->front() != '/') return std::nullopt;
    return normalised(*value);
}

std::string join(const std::string& base, const char* relative) {
    if (base.empty()) return {};
    return normalised(base + "/" + relative);
}

std::string resolve(const std::optional<std::string>& xdgValue, const std::string& home, const char* fallback) {
    if (auto path = absolutePath(xdgValue)) return *path;
    return join(home, fallback);
}

// The file is a handful of lines; a larger one is not the tool's output and is read only this far.
constexpr std::size_t kUserDirsReadLimit = 64 * 1024;

std::string readUserDirsFile(const std::string& preferences) {
    if (preferences.empty()) return {};
    std::ifstream in(preferences + "/user-dirs.dirs", std::ios::binary);
    if (!in) return {};
    std::string text(kUserDirsReadLimit, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

// One line in the tool's format, XDG_DOCUMENTS_DIR="$HOME/relative" or XDG_DOCUMENTS_DIR="/absolute", read
// as the shell would read the double-quoted value; nullopt for any other line, and for a home-relative
// value while the home is unknown. Whatever follows the closing quote is ignored.
std::optional<std::string> documentsFromLine(std::string_view line, const std::string& home) {
    constexpr std::string_view kName = "XDG_DOCUMENTS_DIR";
    auto skipBlanks = [&line] {
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    };
    skipBlanks();
    if (!line.starts_with(kName)) return std::nullopt;
    line.remove_prefix(kName.size());
    skipBlanks();
    if (!line.starts_with('=')) return std::nullopt;
    line.remove_prefix(1);
    skipBlanks();
    if (!line.starts_with('"')) return std::nullopt;
    line.remove_prefix(1);

    const bool homeRelative = line.starts_with("$HOME");
    if (homeRelative) {
        line.remove_prefix(5);
        if (!line.starts_with('/') && !line.starts_with('"')) return std::nullopt;  // $HOMEX is another variable
    } else if (!line.starts_with('/')) {
        return std::nullopt;
    }
    std::string value;
    bool closed = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '"') {
            closed = true;
            break;
        }
        // Inside double quotes a backslash escapes only these; before anything else it is itself.
        constexpr std::string_view kEscapable = "\"\\$`";
        if (c == '\\' && i + 1 < line.size() && kEscapable.find(line[i + 1]) != std::string_view::npos) {
            value += line[++i];
            continue;
        }
        value += c;
    }
    if (!closed) return std::nullopt;
    if (!homeRelative) return normalised(value);
    if (home.empty()) return std::nullopt;
    return normalised(home + "/" + value);
}

// Lines in any other shape are skipped, so a stray edit cannot point documents at a relative folder; of the
// rest the last wins, as it would when a shell sources the file.
std::optional<std::string> documentsFromUserDirs(const std::string& text, const std::string& home) {
    std::optional<std::string> documents;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (auto path = documentsFromLine(line, home)) documents = std::move(path);
    }
    return documents;
}

}  // namespace

Folders::Environment Folders::Environment::fromProcess() {
    return Environment{readVariable("HOME"), readVariable("XDG_CONFIG_HOME"), readVariable("XDG_CACHE_HOME"),
                       readVariable("XDG_DOCUMENTS_DIR")};
}

Folders::Folders(const Environment& environment, Layout layout, const AccountHomeLookup& accountHome) {
    if (auto home = absolutePath(environment.home)) {
        home_ = *home;
    } else if (accountHome) {
        home_ = absolutePath(accountHome()).value_or(std::string());
    }
    const bool mac = layout == Layout::MacOS;
    preferences_ = resolve(environment.xdgConfigHome, home_, mac ? "Library/Preferences" : ".config");
    caches_ = resolve(environment.xdgCacheHome, home_, mac ? "Library/Caches" : ".cache");
    if (auto documents = absolutePath(environment.xdgDocumentsDir)) {
        documents_ = *documents;
    } else if (auto fromFile = mac ? std::nullopt : documentsFromUserDirs(readUserDirsFile(preferences_), home_)) {
        documents_ = *fromFile;
    } else {
        documents_ = join(home_, "Documents");
    }
}

Folders Folders::fromProcessEnvironment() { return Folders(Environment::fromProcess()); }

const Folders& Folders::sharedInstance() {
    static const Folders* const instance = new Folders(fromProcessEnvironment());
    return *instance;
}

const std::string& Folders::path(Location location) const {
    switch (location) {
        case Location::Home: return home_;
        case Location::Documents: return documents_;
        case Location::Caches: return caches_;
        case Location::Preferences: break;
    }
    return preferences_;
}

bool Folders::ensure(Location location) const {
    const std::string& folder = path(location);
    if (folder.empty()) {
        NBLog::sharedInstance().log(4, "Folders: cannot create a folder: the home folder is unknown");
        return false;
    }
    return createFolder(folder, location == Location::Documents ? 0755 : 0700);
}

bool Folders::createFolder(const std::string& path, unsigned mode) {
    if (path.empty() || path.front() != '/') {
        NBLog::sharedInstance().log(4, "Folders: refusing to create the non-absolute folder \"{}\"", path);
        return false;
    }
    // Walk down from the root so each missing level gets our mode (std::filesystem::create_directories
    // would give intermediate folders the default 0777 less umask).
    const std::string target = normalised(path);
    std::size_t position = 0;
    while (position != std::string::npos) {
        position = target.find('/', position + 1);
        const std::string prefix = target.substr(0, position);
        if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode)) == 0) continue;
        const int error = errno;
        struct stat info {};
        // EEXIST is the common case; EACCES or EROFS on an existing ancestor (such as /home) is harmless too.
        if (::stat(prefix.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) continue;
        NBLog::sharedInstance().log(4, "Folders: cannot create \"{}\": {}", prefix,
                                    error == EEXIST ? std::string("not a folder")
                                                       : std::generic_category().message(error));
        return false;
    }
    return true;
}

std::optional<std::string> Folders::accountHomeFromPasswordDatabase() {
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
    for (;;) {
        struct passwd entry {};
        struct passwd* result = nullptr;
        const int error = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
        if (error == ERANGE && buffer.size() < (1u << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0 || result == nullptr || result->pw_dir == nullptr || result->pw_dir[0] == '\0') {
            return std::nullopt;
        }
        return std::string(result->pw_dir);
    }
}

}  // namespace nb
