// NBPopupModel: one popup that the servers want shown at a scene, as PopupWindowInfo files it.
//
// From the reply's popup object: hasX from "has_x" (its bool value: 1, "1", "YES" and true show the cross),
// index from "index" (its int value), and the text fields wId ("id"), title, type ("txt", "big-img" or
// "img"), content, imgUrl ("img_url"), bgImgUrl ("bg_img_url"), urlType ("url_type": "click" or
// "nimbo_protocol"), url, confirmTicket ("confirm_ticket") and param. Text fields keep what the reply gave:
// a string as itself, a number as its string value; a key that is missing, null, or holds an array, an
// object or any other kind leaves nullopt, which differs from "" and which the predicates never match.
// btnArray holds the "buttons" in reply order, and is nullopt when the reply has none, an empty list, or
// something other than a list there (never an empty vector).
//
// Filled in by PopupWindowInfo rather than read from the popup: userData, the session token in force when
// the reply was parsed (nullopt only when no request had set one); scene, the scene it was filed under;
// gameId, the game id of the request.
//
// block is the client's own: the library never sets or calls it. Records are handed out shared and const,
// so setBlock() is const and guarded by a small lock of the record's own: any thread may set or read it at
// any time. block() answers a copy, so the client may call it without the lock held.
//
// Threads: apart from block, a record is immutable once PopupWindowInfo publishes it and may be read on any
// thread; the setters are for building one, on one thread, before it is shared. Copying copies every field
// and the block.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nbbase/support/NBButtonModel.h"

namespace nb {

class NBPopupModel {
public:
    using Block = std::function<void()>;

    NBPopupModel() = default;
    NBPopupModel(const NBPopupModel& other);
    NBPopupModel& operator=(const NBPopupModel& other);

    bool hasX() const noexcept { return f_.hasX; }
    void setHasX(bool hasX) noexcept { f_.hasX = hasX; }
    std::int32_t index() const noexcept { return f_.index; }
    void setIndex(std::int32_t index) noexcept { f_.index = index; }
    const std::optional<std::string>& wId() const noexcept { return f_.wId; }
    void setWId(std::optional<std::string> wId) { f_.wId = std::move(wId); }
    const std::optional<std::string>& title() const noexcept { return f_.title; }
    void setTitle(std::optional<std::string> title) { f_.title = std::move(title); }
    const std::optional<std::string>& type() const noexcept { return f_.type; }
    void setType(std::optional<std::string> type) { f_.type = std::move(type); }
    const std::optional<std::string>& content() const noexcept { return f_.content; }
    void setContent(std::optional<std::string> content) { f_.content = std::move(content); }
    const std::optional<std::string>& imgUrl() const noexcept { return f_.imgUrl; }
    void setImgUrl(std::optional<std::string> imgUrl) { f_.imgUrl = std::move(imgUrl); }
    const std::optional<std::string>& bgImgUrl() const noexcept { return f_.bgImgUrl; }
    void setBgImgUrl(std::optional<std::string> bgImgUrl) { f_.bgImgUrl = std::move(bgImgUrl); }
    const std::optional<std::string>& urlType() const noexcept { return f_.urlType; }
    void setUrlType(std::optional<std::string> urlType) { f_.urlType = std::move(urlType); }
    const std::optional<std::string>& url() const noexcept { return f_.url; }
    void setUrl(std::optional<std::string> url) { f_.url = std::move(url); }
    const std::optional<std::string>& confirmTicket() const noexcept { return f_.confirmTicket; }
    void setConfirmTicket(std::optional<std::string> confirmTicket) { f_.confirmTicket = std::move(confirmTicket); }
    const std::optional<std::string>& param() const noexcept { return f_.param; }
    void setParam(std::optional<std::string> param) { f_.param = std::move(param); }
    const std::optional<std::vector<NBButtonModel>>& btnArray() const noexcept { return f_.btnArray; }
    // An empty list is stored as nullopt, so that "no buttons" has one form.
    void setBtnArray(std::optional<std::vector<NBButtonModel>> btnArray);
    const std::optional<std::string>& userData() const noexcept { return f_.userData; }
    void setUserData(std::optional<std::string> userData) { f_.userData = std::move(userData); }
    const std::string& scene() const noexcept { return f_.scene; }
    void setScene(std::string scene) { f_.scene = std::move(scene); }
    const std::string& gameId() const noexcept { return f_.gameId; }
    void setGameId(std::string gameId) { f_.gameId = std::move(gameId); }
    [[nodiscard]] Block block() const;
    void setBlock(Block block) const;

    bool isTextWindow() const noexcept { return f_.type == "txt"; }
    bool isBigImageWindow() const noexcept { return f_.type == "big-img"; }
    bool isImageWindow() const noexcept { return f_.type == "img"; }
    bool isUrlTypeClick() const noexcept { return f_.urlType == "click"; }
    bool isUrlTypeNimboProtocol() const noexcept { return f_.urlType == "nimbo_protocol"; }

private:
    // Everything but the block, so that copying needs no list of fields.
    struct Fields {
        bool hasX = false;
        std::int32_t index = 0;
        std::optional<std::string> wId;
        std::optional<std::string> title;
        std::optional<std::string> type;
        std::optional<std::string> content;
        std::optional<std::string> imgUrl;
        std::optional<std::string> bgImgUrl;
        std::optional<std::string> urlType;
        std::optional<std::string> url;
        std::optional<std::string> confirmTicket;
        std::optional<std::string> param;
        std::optional<std::vector<NBButtonModel>> btnArray;
        std::optional<std::string> userData;
        std::string scene;
        std::string gameId;
    };

    Fields f_;
    mutable std::mutex blockMutex_;
    mutable Block block_;  // guarded by blockMutex_
};

}  // namespace nb
