// `nbctl defaults`: reads and writes settings suites as the `defaults` command does, so a developer can
// look at or change what the library and its host stored.
//
//   defaults domains                         the suites in the preferences folder, one a line
//   defaults read DOMAIN [KEY] [--json]      a whole suite or one value
//   defaults read-type DOMAIN KEY            "Type is string" (integer, float, boolean, array, dictionary,
//                                            data, date)
//   defaults write DOMAIN KEY [-TYPE] VALUE  TYPE: string (the default), int, float, bool; or
//                                            -array V..., -dict K V ...
//   defaults write DOMAIN KEY -array-add V...   appends strings to the array stored there (a new array
//                                            when the key is missing; refused when it holds another kind)
//   defaults write DOMAIN KEY -dict-add K V ... adds or replaces string pairs in the dictionary likewise
//   defaults rename DOMAIN OLD NEW           moves OLD's value to NEW, replacing what NEW held
//   defaults delete DOMAIN [KEY]             one key, or the whole suite
//   defaults find WORD                       every suite's keys and values that contain WORD
//   defaults export DOMAIN FILE              the suite as an XML property list; FILE "-" is standard output
//   defaults import DOMAIN FILE              stores every key of an XML or binary property list whose
//                                            root is a dictionary; FILE "-" is standard input
//
// Numbers: -int takes a decimal integer that fits 64 bits, -float a decimal number within double's range
// (not infinite, not so small it would read as 0); anything else is refused, never rounded to the end
// of the range.
//
// find compares ASCII letters without regard to case and looks at keys (nested ones too), strings, and
// integers and reals as their decimal text; booleans, data and dates never match. For each suite with
// matches, in suite order, it prints "Found N keys in domain 'D': " and then the matching top-level
// entries whole, as `read` prints a suite:
//   Found 1 keys in domain 'com.example.app': {
//       name = "Lantern Quest";
//   }
// When no suite matches it fails (exit 1), as grep does, so scripts can test for a hit.
//
// None of the verbs that change more than one row is a transaction, because each UserDefaults setter
// commits on its own:
// - rename writes NEW first and then removes OLD, so a crash between the two leaves the value under both
//   keys, never under neither; when the removal fails, NEW is put back as it was. A change another
//   process makes to OLD after rename read it is lost.
// - import checks the whole file before storing anything, so a file it refuses changes nothing; a
//   write that fails part-way leaves the keys before it stored and says how many. Keys the suite holds
//   and the file does not are kept.
// - -array-add and -dict-add read, change and write back the value: a concurrent write of the same key
//   between the read and the write is lost.
// export writes FILE through nb::AtomicFile: a reader finds the old file or the whole new one (mode 0600,
// since a suite may hold the session token).
//
// Exit codes: 0 success, 1 a missing domain or key, an unreadable or refused file, no match for find, or
// a failed write, 2 bad arguments. Every failure prints one line on standard error.
//
// Threads: run() is called once, on the main thread; it blocks on the suites' databases and files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class DefaultsCommand {
public:
    // Adds the subcommand and its own subcommands to app. The preferences folder is read when the
    // command runs, so a --preferences option parsed later still applies; it must outlive this object.
    DefaultsCommand(CLI::App& app, const std::filesystem::path& preferencesFolder);

    bool selected() const { return command_->parsed(); }
    int run() const;

private:
    int read() const;
    int readType() const;
    int write() const;
    int remove() const;
    int rename() const;
    int domains() const;
    int find() const;
    int exportDomain() const;
    int importDomain() const;
    bool domainExists(const std::string& domain) const;

    const std::filesystem::path& folder_;
    CLI::App* command_ = nullptr;
    CLI::App* read_ = nullptr;
    CLI::App* readType_ = nullptr;
    CLI::App* write_ = nullptr;
    CLI::App* delete_ = nullptr;
    CLI::App* rename_ = nullptr;
    CLI::App* domains_ = nullptr;
    CLI::App* find_ = nullptr;
    CLI::App* export_ = nullptr;
    CLI::App* import_ = nullptr;
    std::string domain_;
    std::string key_;
    std::string newKey_;
    std::string word_;
    std::string file_;
    bool json_ = false;
};

}  // namespace nb::nbctl
