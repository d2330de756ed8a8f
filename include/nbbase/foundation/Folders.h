// nb::Folders: the user's home, documents, caches and preferences folders.
//
// Resolution, done once in the constructor:
//   home         $HOME when it is an absolute path, else the account's home from the password database.
//   preferences  $XDG_CONFIG_HOME, else home/.config (home/Library/Preferences on macOS).
//   caches       $XDG_CACHE_HOME, else home/.cache (home/Library/Caches on macOS).
//   documents    $XDG_DOCUMENTS_DIR, else (Layout::Xdg only) the XDG_DOCUMENTS_DIR line of user-dirs.dirs in
//                the preferences folder, else home/Documents.
// An XDG value that is empty or relative is ignored, as the XDG base-directory rules require. The XDG
// variables are honoured on macOS too, so that one setting redirects every folder on every platform. Paths
// come back lexically normalised, without a trailing separator (except the root "/").
// When no home can be found at all, the folders that depend on it are "" (unknown).
//
// user-dirs.dirs is read in xdg-user-dirs' own format: a line XDG_DOCUMENTS_DIR="$HOME/relative" or
// XDG_DOCUMENTS_DIR="/absolute" (blanks allowed around the name and the '='), the value read as the shell
// reads double quotes (a backslash escapes " \ $ and `, and is itself before anything else), whatever
// follows the closing quote ignored. Comments and lines of any other shape are skipped; of the documents
// lines that remain the last wins. "$HOME/" alone means the home folder itself. A missing or unreadable file
// is the same as one without such a line.
//
// The constructor reads that one small file; afterwards the getters never touch the disk. ensure() creates a
// folder when a caller is about to write into it.
//
// Threads: an instance is immutable after construction, so every const member may be called on any thread.
// sharedInstance() reads the process environment once, on first use; later changes to the environment are
// not seen (changing the environment of a running, threaded process is not safe anyway).
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace nb {

class Folders {
public:
    // The variables the resolution reads; nullopt is an unset variable, "" a variable set to nothing.
    struct Environment {
        std::optional<std::string> home;             // HOME
        std::optional<std::string> xdgConfigHome;    // XDG_CONFIG_HOME
        std::optional<std::string> xdgCacheHome;     // XDG_CACHE_HOME
        std::optional<std::string> xdgDocumentsDir;  // XDG_DOCUMENTS_DIR

        // Reads the variables with getenv. Call it where nothing changes the environment concurrently.
        static Environment fromProcess();
    };

    enum class Layout { Xdg, MacOS };
    enum class Location { Home, Documents, Caches, Preferences };

    // Answers the home folder of the account running the process, nullopt when there is none.
    using AccountHomeLookup = std::function<std::optional<std::string>()>;

    static constexpr Layout nativeLayout() {
#ifdef __APPLE__
        return Layout::MacOS;
#else
        return Layout::Xdg;
#endif
    }

    explicit Folders(const Environment& environment, Layout layout = nativeLayout(),
                     const AccountHomeLookup& accountHome = &Folders::accountHomeFromPasswordDatabase);

    static Folders fromProcessEnvironment();

    // The process-wide folders, resolved from the process environment on first use, never destroyed.
    static const Folders& sharedInstance();

    // "" when unknown (no home and no absolute XDG value).
    const std::string& path(Location location) const;
    const std::string& homeFolder() const { return path(Location::Home); }
    const std::string& documentsFolder() const { return path(Location::Documents); }
    const std::string& cachesFolder() const { return path(Location::Caches); }
    const std::string& preferencesFolder() const { return path(Location::Preferences); }

    // Creates the folder and any missing parents. Folders created here get mode 0700 (they may hold the
    // session token and private caches), except documents, which gets 0755; existing folders keep their
    // mode. Answers true when the folder exists afterwards; false, with an error logged, when the location
    // is unknown or the folder could not be created (or a non-folder is in the way).
    [[nodiscard]] bool ensure(Location location) const;

    // mkdir -p with the given mode for each folder it creates. False when path is empty or relative,
    // or when creation fails; the reason is logged at error level.
    [[nodiscard]] static bool createFolder(const std::string& path, unsigned mode);

    // The production AccountHomeLookup: getpwuid_r for the real user id.
    static std::optional<std::string> accountHomeFromPasswordDatabase();

private:
    std::string home_;
    std::string documents_;
    std::string caches_;
    std::string preferences_;
};

}  // namespace nb
