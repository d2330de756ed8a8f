// NBCustomizedVersionComparator: decides which of two application versions is newer, for the updater.
//
// A version is read as runs of characters of one class: numbers, strings, separators (every separator
// character is a run of its own) and the dash, which ends the comparable part: "2.1-beta" reads as
// [2] [.] [1], the same as "2.1". Only a dash in first place is kept, as a run of its own ("-1" is [-] [1]).
// Runs are compared pairwise: numbers by value, strings by code point (UTF-8 byte order: case-sensitive, no
// normalisation), separators and dashes of one class are passed over; a number beats a string, a string
// loses to anything else, a number beats a separator or dash, and a separator against a dash makes the first
// version the older, whichever it is (the one pair where swapping the versions does not flip the answer:
// ".2" and "-" are each older than the other). When one version has runs left over, its next
// run decides: a string makes it a pre-release, older ("1.0b1" is older than "1.0"), anything else makes it
// newer ("1.0.1" is newer than "1.0").
//
// Characters are Unicode code points, decoded from UTF-8 (a UTF-16 surrogate pair is one character; a byte
// that is not valid UTF-8 counts as one character of the string class). A character is:
//   a number when it is a decimal digit (general category Nd, any script: "٣" and "３" too);
//   a separator when it is white space or a line break (categories Zs, Zl, Zp, and U+0009 to U+000D,
//   U+0085), or punctuation (categories P*: "." "," "_" "(" "、" ...); "+" and "~" are symbols, not
//   punctuation, so they are strings;
//   the dash only as the one-character text "-";
//   a string otherwise.
// typeOfCharacter classifies a text by its first character, after two whole-text tests ("." is a
// separator, "-" the dash), so it serves for one character and for a whole run; "" is a string.
//
// A number run is worth the decimal value of its digits, each digit by its Unicode value ("١٢" is 12, equal
// to "12"), held in 64 bits: a value beyond INT64_MAX saturates there, so two such values compare equal
// rather than wrapping.
//
// Build-number mode (compareNimboBuildNum, off unless the client sets it) splits at "." alone and compares
// only the first components, then the last, each read as a long long value (leading white space, a sign,
// digits; anything else reads 0; saturating): "0.10.9999.5" is newer than "0.11.0.4".
//
// Answers are -1 (the first version is older), 0 (the same) or 1 (newer).
//
// Threads: every function may be called on any thread, concurrently; the flag is atomic. defaultComparator()
// is created once, thread-safely, and never destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/updater/SUVersionComparison.h"

namespace nb {

class NBCustomizedVersionComparator final : public SUVersionComparison {
public:
    enum CharacterType : std::int64_t { kNumber = 0, kString = 1, kSeparator = 2, kDash = 3 };

    static NBCustomizedVersionComparator& defaultComparator();

    NBCustomizedVersionComparator() = default;
    NBCustomizedVersionComparator(const NBCustomizedVersionComparator&) = delete;
    NBCustomizedVersionComparator& operator=(const NBCustomizedVersionComparator&) = delete;

    [[nodiscard]] bool compareNimboBuildNum() const noexcept { return compareNimboBuildNum_.load(); }
    void setCompareNimboBuildNum(bool value) noexcept { compareNimboBuildNum_.store(value); }

    [[nodiscard]] static std::int64_t typeOfCharacter(std::string_view text);
    [[nodiscard]] static std::vector<std::string> splitVersionString(std::string_view version);
    [[nodiscard]] std::int64_t compareVersion(std::string_view a, std::string_view toVersion) const override;

private:
    std::atomic<bool> compareNimboBuildNum_{false};
};

}  // namespace nb
