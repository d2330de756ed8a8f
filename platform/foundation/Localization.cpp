#include "nbbase/foundation/Localization.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <dlfcn.h>
#include <libintl.h>

#include "nbbase/foundation/NBLog.h"

#ifndef NBBASE_LOCALEDIR
#define NBBASE_LOCALEDIR "/usr/local/share/locale"
#endif
#ifndef NBBASE_LIBDIR_TO_LOCALEDIR
#define NBBASE_LIBDIR_TO_LOCALEDIR "../share/locale"
#endif
#ifndef NBBASE_BUILD_LOCALEDIR
#define NBBASE_BUILD_LOCALEDIR ""
#endif

namespace nb {

namespace {

namespace fs = std::filesystem;

bool holdsCatalogue(const std::string& directory, const std::string& domain) {
    if (directory.empty()) return false;
    std::error_code error;
    fs::directory_iterator it(directory, error);
    if (error) return false;
    const std::string catalogue = domain + ".mo";
    for (; it != fs::directory_iterator(); it.increment(error)) {
        if (error) return false;
        std::error_code ignored;
        if (fs::is_regular_file(it->path() / "LC_MESSAGES" / catalogue, ignored)) return true;
    }
    return false;
}

// The locale folder at the place it had, relative to the library file, when the library was installed.
// An install moved to another prefix (cmake --install --prefix, a package, an unpacked archive) keeps
// that relation, while the prefix the build was configured with may not exist on this machine at all.
std::string localeDirectoryBesideLibrary() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&Localization::defaultDirectories), &info) == 0 ||
        info.dli_fname == nullptr) {
        return {};
    }
    std::error_code error;
    const fs::path library = fs::absolute(info.dli_fname, error);
    if (error) return {};
    return (library.parent_path() / NBBASE_LIBDIR_TO_LOCALEDIR).lexically_normal().string();
}

}  // namespace

Localization::Directories Localization::defaultDirectories() {
    Directories directories;
    if (const char* fromEnvironment = std::getenv("NBBASE_LOCALEDIR")) directories.override = fromEnvironment;
    const std::string beside = localeDirectoryBesideLibrary();
    directories.installed = holdsCatalogue(beside, kDomain) ? beside : NBBASE_LOCALEDIR;
    directories.build = NBBASE_BUILD_LOCALEDIR;
    return directories;
}

Localization::Localization(std::string domain, Directories directories)
    : domain_(std::move(domain)), directories_(std::move(directories)) {}

Localization& Localization::sharedInstance() {
    static Localization* const instance = new Localization();
    return *instance;
}

std::string Localization::chooseDirectory(const Directories& directories, const std::string& domain) {
    if (directories.override && !directories.override->empty()) return *directories.override;
    if (holdsCatalogue(directories.installed, domain)) return directories.installed;
    return directories.build.empty() ? directories.installed : directories.build;
}

std::string Localization::localizedString(const std::string& english) const {
    if (english.empty()) return english;
    bindIfNeeded();
    return ::dgettext(domain_.c_str(), english.c_str());
}

void Localization::setLocaleDirectory(std::string directory) {
    std::lock_guard lock(mutex_);
    directories_.override = std::move(directory);
    bindLocked();
}

std::string Localization::localeDirectory() const {
    std::lock_guard lock(mutex_);
    return chooseDirectory(directories_, domain_);
}

void Localization::bindIfNeeded() const {
    if (bound_.load(std::memory_order_acquire)) return;
    std::lock_guard lock(mutex_);
    if (!bound_.load(std::memory_order_relaxed)) bindLocked();
}

void Localization::bindLocked() const {
    const std::string directory = chooseDirectory(directories_, domain_);
    // A failed binding is not fatal: gettext then answers the English texts, which is what the user
    // would see without a catalogue anyway.
    if (::bindtextdomain(domain_.c_str(), directory.c_str()) == nullptr) {
        NBLog::sharedInstance().log(4, "Localization: cannot bind domain {} to {}", domain_, directory);
    }
    if (::bind_textdomain_codeset(domain_.c_str(), "UTF-8") == nullptr) {
        NBLog::sharedInstance().log(4, "Localization: cannot set UTF-8 for domain {}", domain_);
    }
    bound_.store(true, std::memory_order_release);
}

}  // namespace nb
