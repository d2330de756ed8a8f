// NBFileManager: the client's folders in the user's documents folder, "Games" (one folder per game, each
// with an "icon" folder) and "Logs", and the cached game icon files.
//
// Creation makes the documents folder, then documents/Games and documents/Logs, each one level only, as
// ensureFolderExists() does: a documents folder whose parent is missing is not made, and neither are the
// two below it. On Linux a fresh account often has no documents folder yet, hence the first step.
//
// The icon file of version V is V/V.png (V with any trailing '/' removed) RELATIVE TO THE PROCESS'S CURRENT
// FOLDER, not inside the game's icon folder; the icon folder is still made on every read and write. Reads
// and writes agree on that path, and the game id plays no part in it, so an icon written for one game is
// read back for any other with the same version. An empty version has no icon path: a read answers nullopt
// and a write false, after the icon folder was made.
//
// Ids and versions are joined as path components, never resolved: "a/b" is two levels, a trailing '/' is
// dropped, "" names the parent itself, and ".." is not refused (ids and versions come from our servers).
//
// Unknown documents folder (constructed with ""): the paths are then relative, "Games", "Logs" and
// "Games/<id>", and the manager creates none of them, neither at creation nor on demand, so that it never
// litters whatever the current folder happens to be. The icon path does not depend on the documents folder
// and is read and written as usual.
//
// Failures: folder creation errors are ignored; a read that finds no regular file, or cannot read it,
// answers nullopt; a write that fails (missing V folder, no permission, disk full) answers false, logs the
// reason at level 4 and leaves any existing icon file as it was.
//
// Threads: the paths are fixed at construction, so every function may be called on any thread; the file
// system is the only shared state. Two writers of one icon both succeed and the later one's file wins whole.
// sharedInstance() is created on first use, thread-safely, and never destroyed.
#pragma once

#include <optional>
#include <string>

#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBFileManager {
public:
    // The process-wide manager on Folders::sharedInstance()'s documents folder.
    static NBFileManager& sharedInstance();

    // `documentsFolder`: an absolute path, or "" when unknown (see above). Creates the folders at once.
    explicit NBFileManager(std::string documentsFolder = Folders::sharedInstance().documentsFolder());

    // One mkdir with mode 0755 (less the umask) when nothing exists at the path; never makes parents. Errors
    // (a missing parent, no permission, "" as the path) are ignored: the next use of the folder fails instead.
    void ensureFolderExists(const std::string& folderPath) const;

    // gamesFolderPath/<gameId>, made if missing (while the documents folder is known).
    std::string getGameFolderPathById(const std::string& gameId) const;

    // The bytes of the icon file of `Version`; makes the game's icon folder first.
    std::optional<Data> readGameIconFileData(const std::string& gameId, const std::string& Version) const;

    // Replaces the icon file of `Version` atomically (a temporary file beside it renamed over it); makes the
    // game's icon folder first. True when the new bytes are in place.
    [[nodiscard]] bool writeGameIconFileData(const std::string& gameId, const std::string& Version,
                                             const Data& Data) const;

    const std::string& getLogFolder() const { return logFolderPath_; }

    const std::string& gamesFolderPath() const { return gamesFolderPath_; }
    const std::string& logFolderPath() const { return logFolderPath_; }

private:
    // Makes gamesFolderPath/<gameId>/icon (when the documents folder is known).
    void ensureIconFolder(const std::string& gameId) const;

    const bool documentsKnown_;
    const std::string gamesFolderPath_;
    const std::string logFolderPath_;
};

}  // namespace nb
