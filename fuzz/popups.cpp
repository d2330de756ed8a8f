// Any bytes as a popup reply, parsed on a fresh store that held a popup under every scene: afterwards only
// the four scenes are filed, each only when the reply's "data" -> "scenes" has a non-empty array for it, and
// then with one record per element in reply order (the record's id is the element's); every record
// carries its scene and the game id; a btnArray is nil or holds one button per element of a non-empty
// "buttons" array. The image cache holds no picture, so no input can start a download.
//
// Seed: examples/replies/requestPopupWindowInfo.json.
#include <cstddef>
#include <cstdint>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/NBConstants.h"
#include "nbbase/catalog/NBImageCache.h"
#include "nbbase/support/PopupWindowInfo.h"

namespace {

using nbfuzz::check;

constexpr const char* kScenes[] = {nb::kSceneGameDetailPage, nb::kScenePreLaunchGame, nb::kSceneGamePlaying,
                                   nb::kSceneActivityGameNeedPermission};

nb::NBImageCache& emptyImageCache() {
    static nb::NBImageCache* const cache = new nb::NBImageCache();
    return *cache;
}

void checkScene(const nb::PopupWindowInfo& popups, const char* scene, const nb::Value& items) {
    const auto list = popups.popupWindowArrayByScene(scene);
    const nb::Value::Array* elements = items.asArray();
    if (elements == nullptr || elements->empty()) return check(list == nullptr);
    check(list != nullptr && list->size() == elements->size());
    for (std::size_t i = 0; i < elements->size(); ++i) {
        const nb::NBPopupModel& popup = *list->at(i);
        const nb::Value& element = (*elements)[i];
        check(popup.scene() == scene && popup.gameId() == "game" && popup.wId() == element["id"].textValue());
        const nb::Value::Array* buttons = element["buttons"].asArray();
        if (buttons == nullptr || buttons->empty()) {
            check(!popup.btnArray());
        } else {
            check(popup.btnArray() && popup.btnArray()->size() == buttons->size());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::PopupWindowInfo popups(collaborators.bridge(), emptyImageCache(), collaborators.log(),
                               collaborators.background());
    for (const char* scene : kScenes) {
        popups.addPopupModels(nb::Value::array({nb::Value::dictionary({{"id", "earlier"}})}), scene, "earlier");
    }
    const nb::Value reply = nbfuzz::decodeInput(data, size);
    popups.parse(reply, "game");

    const nb::Value& scenes = reply["data"]["scenes"];
    const bool filed = reply.isDictionary() && scenes.isDictionary();
    for (const char* scene : kScenes) checkScene(popups, scene, filed ? scenes[scene] : nb::Value());
    if (const nb::Value::Dictionary* keys = scenes.asDictionary()) {
        for (const auto& [key, value] : *keys) {
            bool known = false;
            for (const char* scene : kScenes) known = known || key == scene;
            check(known || popups.popupWindowArrayByScene(key) == nullptr);
        }
    }
    return 0;
}
