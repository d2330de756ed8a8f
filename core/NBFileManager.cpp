#include "nbbase/core/NBFileManager.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

#include "nbbase/foundation/AtomicFile.h"
#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace {

// Appends `component` as one more path component: separators are collapsed and a trailing one dropped, but
// nothing is resolved, and an absolute component stays below `base` (std::filesystem's operator/ would let
// it replace `base`).
std::string appendComponent(const std::string& base, std::string_view component) {
    std::string joined = base.empty() ? std::string(component) : base + "/" + std::string(component);
    std::string result;
    result.reserve(joined.size());
    for (const char c : joined) {
        if (c == '/' && !result.empty() && result.back() == '/') continue;
        result += c;
    }
    while (result.size() > 1 && result.back() == '/') result.pop_back();
    return result;
}

// V/V.png, or "" when the version is empty once its trailing separators are gone.
std::string iconPath(std::string_view version) {
    while (!version.empty() && version.back() == '/') version.remove_suffix(1);
    if (version.empty()) return {};
    return appendComponent(std::string(version), version) + ".png";
}

}  // namespace

NBFileManager& NBFileManager::sharedInstance() {
    static NBFileManager* const instance = new NBFileManager(Folders::sharedInstance().documentsFolder());
    return *instance;
}

NBFileManager::NBFileManager(std::string documentsFolder)
    : documentsKnown_(!documentsFolder.empty()),
      gamesFolderPath_(appendComponent(documentsFolder, "Games")),
      logFolderPath_(appendComponent(documentsFolder, "Logs")) {
    if (!documentsKnown_) return;
    ensureFolderExists(documentsFolder);
    ensureFolderExists(gamesFolderPath_);
    ensureFolderExists(logFolderPath_);
}

void NBFileManager::ensureFolderExists(const std::string& folderPath) const {
    // mkdir itself refuses when anything (a file, a dangling link) is at the path; that refusal is ignored
    // like any other.
    if (!folderPath.empty()) (void)::mkdir(folderPath.c_str(), 0755);
}

std::string NBFileManager::getGameFolderPathById(const std::string& gameId) const {
    std::string folder = appendComponent(gamesFolderPath_, gameId);
    if (documentsKnown_) ensureFolderExists(folder);
    return folder;
}

void NBFileManager::ensureIconFolder(const std::string& gameId) const {
    const std::string gameFolder = getGameFolderPathById(gameId);
    if (documentsKnown_) ensureFolderExists(appendComponent(gameFolder, "icon"));
}

std::optional<Data> NBFileManager::readGameIconFileData(const std::string& gameId, const std::string& Version) const {
    ensureIconFolder(gameId);
    const std::string path = iconPath(Version);
    if (path.empty()) return std::nullopt;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    nb::Data bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) return std::nullopt;
    return bytes;
}

bool NBFileManager::writeGameIconFileData(const std::string& gameId, const std::string& Version,
                                          const nb::Data& Data) const {
    ensureIconFolder(gameId);
    const std::string path = iconPath(Version);
    if (path.empty()) {
        NBLog::sharedInstance().log(4, "NBFileManager: no icon file for an empty version (game {})", gameId);
        return false;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(Data.data()), Data.size());
    if (auto failure = AtomicFile::write(path, bytes)) {
        NBLog::sharedInstance().log(4, "NBFileManager: icon of game {} not saved: {}", gameId, *failure);
        return false;
    }
    return true;
}

}  // namespace nb
