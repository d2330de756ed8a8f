// nb::Localization: the library's own user-visible texts in the user's language, through GNU gettext.
//
// Message ids are the English texts, character for character; a text without a translation in the user's
// language comes back unchanged, so the English text is always the fallback. Catalogues are
// <dir>/<lang>/LC_MESSAGES/<domain>.mo, compiled at build time from po/<lang>.po.
//
// Which <dir>: an explicit override (setLocaleDirectory(), or for the shared instance the environment
// variable NBBASE_LOCALEDIR), else the installed locale folder when it holds a catalogue of the domain,
// else the build tree's, so that programs run from the build tree are translated too. The installed
// folder is looked for where it sits relative to the library file (lib/../share/locale under the install
// prefix), so an install into any prefix finds its catalogues; failing that, under the prefix the build
// was configured with.
//
// The language is chosen by gettext from the process locale: LANGUAGE, LC_ALL, LC_MESSAGES and LANG are
// honoured once the host has called setlocale(LC_ALL, ""), which every host should do first thing in
// main(). Until then the process runs in the "C" locale and every text is English. The library never calls setlocale or setenv itself: both are process-wide
// and unsafe while other threads run, so that call belongs to the host's main() before it starts threads.
//
// Threads: every member may be called on any thread. The domain is bound (bindtextdomain, codeset UTF-8)
// once, on the first lookup, and again only when setLocaleDirectory() is called. A gettext domain is
// process-wide: instances for the same domain share one binding, and the last directory bound wins.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

namespace nb {

class Localization {
public:
    static constexpr const char* kDomain = "NBBase";

    struct Directories {
        std::optional<std::string> override;  // wins when set and not empty, whether or not it exists
        std::string installed;
        std::string build;
    };

    // The library's defaults: NBBASE_LOCALEDIR from the process environment (read now), the installed
    // folder (beside the library file when it holds the catalogues, else the configured one) and the
    // build-tree folder.
    static Directories defaultDirectories();

    explicit Localization(std::string domain = kDomain, Directories directories = defaultDirectories());

    Localization(const Localization&) = delete;
    Localization& operator=(const Localization&) = delete;

    // The library's instance, domain "NBBase" with the default directories; created on first use, never
    // destroyed.
    static Localization& sharedInstance();

    // The translation of an English text, or the text itself. "" stays "" (gettext would answer the
    // catalogue's header for it).
    std::string localizedString(const std::string& english) const;

    // Points the domain at another folder of catalogues and rebinds it now. Texts already looked up are
    // not changed; later lookups use the new folder.
    void setLocaleDirectory(std::string directory);

    // The folder the domain is (or will be, on first lookup) bound to.
    std::string localeDirectory() const;

    const std::string& domain() const { return domain_; }

    // The folder rule above, on its own; it only reads the file system.
    static std::string chooseDirectory(const Directories& directories, const std::string& domain);

private:
    void bindIfNeeded() const;
    void bindLocked() const;  // requires mutex_

    const std::string domain_;
    mutable std::mutex mutex_;
    Directories directories_;             // guarded by mutex_
    mutable std::atomic<bool> bound_{false};  // set under mutex_ once the domain is bound
};

}  // namespace nb
