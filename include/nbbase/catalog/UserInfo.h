// UserInfo: the signed-in user's profile as the account server returned it, and the avatar's bytes.
//
// The client hands parse() the profile reply's bytes; a present key replaces its field and an absent key
// keeps it, and the reply itself is kept whole (dict(), absent when the bytes were not JSON). Text fields
// take a string as it is and a number as its decimal text; any other kind (null, an object) makes them nil.
// "last_login" is kept as the JSON sent it. parse() always answers true: a profile that does not decode
// changes nothing but dict().
//
// The avatar: parse() starts downloadUserIcon() whenever the reply names a "figure_url". The whole URL text
// is percent-encoded with the URL-query set (an encoded URL is encoded again, "%" included) and fetched on
// the URL session given to the constructor; when the download succeeds its bytes become iconData(). A
// failed download changes nothing and logs nothing; no event is posted, the client reads iconData() when it
// draws. Two downloads in flight store in the order they complete.
//
// Threads: every function may be called on any thread; one mutex guards every field, and a parse applies a
// whole reply under it. The download completes on the session's thread.
//
// Lifetime: a download that completes after the object is destroyed is dropped. The session must outlive
// the object. sharedInstance() is created on first use and never destroyed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/common/URLSession.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class UserInfo {
public:
    static UserInfo& sharedInstance();

    explicit UserInfo(URLSession& session = URLSession::shared());
    UserInfo(const UserInfo&) = delete;
    UserInfo& operator=(const UserInfo&) = delete;

    bool parse(const Data& bytes);
    // Nothing for nil.
    void downloadUserIcon(const std::optional<std::string>& url);

    [[nodiscard]] Value dict() const;
    [[nodiscard]] std::optional<std::string> nickName() const;
    [[nodiscard]] std::optional<std::string> figure() const;  // the avatar URL
    [[nodiscard]] Value lastLogin() const;
    [[nodiscard]] std::int32_t openType() const;
    [[nodiscard]] std::int32_t userStatus() const;

    [[nodiscard]] std::optional<std::string> userId() const;
    void setUserId(std::optional<std::string> userId);
    [[nodiscard]] std::optional<Data> iconData() const;
    void setIconData(std::optional<Data> iconData);

    struct State;

private:
    URLSession& session_;
    std::shared_ptr<State> state_;  // downloads in flight hold it weakly
};

}  // namespace nb
