// Any bytes as a game-information reply, on a fresh model: every question afterwards must hold together
// (the copy-game questions agree, the obtain-game triple carries the stored URL, the tag questions follow
// the tag period), and the decoded bytes as a partial update must change only what parseDict may.
// There is no SDK instance, so the server time is 0 throughout.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/GameInfo.h"
#include "nbbase/foundation/Json.h"

namespace {

using nbfuzz::check;

// The tag period rules at time 0: a negative start never holds and a positive one has not begun; with no
// start, anything but a negative end holds (an end alone is compared with the start, 0).
bool validAtZero(std::int64_t start, std::int64_t end) { return start == 0 && end >= 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::GameInfo game(collaborators.bridge(), nb::Localization::sharedInstance(), collaborators.log());
    const nb::Data bytes(data, data + size);
    const bool parsed = game.parse(bytes);
    const auto decoded = nb::Json::decode(bytes);
    check(parsed == (decoded && (*decoded)["data"].isDictionary()));
    check(game.isChanged() && game.dict() == decoded.value_or(nb::Value()));

    const bool valid = game.isTagTimeValid();
    check(valid == validAtZero(game.freeStartTS(), game.freeEndTS()));
    check(game.isTestGame() == (valid && (game.showTagBit() & 1)));
    check(game.isLimitedGame() == (valid && (game.showTagBit() & 2)));
    check(game.isLimitedTimeValid() == (valid && game.freeEndTS() >= 1));
    check(game.copyGame() == game.subscribeCopyGame());
    check(game.isCopyGameMode() == (game.copyGame() && !game.myGame()));
    check(game.isPossessCopyGame() == (game.copyGame() && game.myGame()));
    check(game.gameWithoutPermission() == (game.isPermissionMode() && game.permissionValue() == 0));
    const auto url = game.obtainGameWebUrl();
    const auto events = game.obtainGameEvents();
    check(events.has_value() == (url && !url->empty()));
    if (events) check(events->size() == 3 && events->back() == *url && game.lastValidObtainGameUrl() == url);
    if (url) check(game.lastValidObtainGameUrl() == url);
    (void)game.gameType(), (void)game.copyGameTimeLeft(), (void)game.isNeedHideVipQueueBtn();
    (void)game.gtEnableGamingType(), (void)game.skipPayment(), (void)game.isSupportSkipArchive();
    (void)game.permissionTryTime(), (void)game.paidTimeLeft(), (void)game.waitFirstScene();
    (void)game.obtainGameButtonTitle(), (void)game.gameId(), (void)game.name(), (void)game.playGetBtnText();
    (void)game.playGetBtnTarget(), (void)game.playVipGameQuitText(), (void)game.playVipGameExpireText();

    // The same bytes as a partial update: only the time left and the permission may change.
    const std::int32_t tagBits = game.showTagBit();
    const bool copyMode = game.isCopyGameMode();
    const std::int64_t timeLeft = game.copyGameTimeLeft();
    game.parseDict(decoded.value_or(nb::Value()));
    check(game.showTagBit() == tagBits && game.isCopyGameMode() == copyMode);
    if (!copyMode) check(game.copyGameTimeLeft() == timeLeft);
    (void)game.gameWithoutPermission();

    (void)nb::GameInfo::isNumeric(std::string_view(reinterpret_cast<const char*>(data), size));
    return 0;
}
