// InterestsReplyReader: reads a full interests reply straight into records while Json::read walks the
// text, without a Value tree of the reply; for a reply of thousands of records that tree costs more than
// the records themselves.
//
// It keeps what Json::decode and the Value path would read: "code" and "message" of the top object, and of
// its "data" object the "timestamp" and the sections (with ReplyForm::Text, no "no_having"), the last of a
// repeated key winning at every level. Sections are built as they stream past, because "code" may follow
// "data" in the text; the caller decides from code() whether to apply them. A "data" that is not an object
// counts as missing; a section that is not an array is present and empty; an element of any kind, and each
// element key, converts by Value's rules through the same record builders as a decoded element.
//
// Use one reader for one read: Json::read(text, {.allowFragments = true}, reader). What it holds after a
// failed read means nothing.
//
// Threads: not synchronised; a reader is used on the thread that reads with it.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "nbbase/entitlements/InterestFields.h"
#include "nbbase/entitlements/InterestsSnapshot.h"
#include "nbbase/foundation/JsonEvents.h"
#include "nbbase/foundation/JsonValueBuilder.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class InterestsReplyReader final : public JsonEvents {
public:
    explicit InterestsReplyReader(InterestsSnapshot::ReplyForm form);

    bool null() override;
    bool boolean(bool b) override;
    bool number(Value number) override;
    bool string(std::string_view s) override;
    bool key(std::string_view key) override;
    bool startObject() override;
    bool endObject(std::size_t memberCount) override;
    bool startArray() override;
    bool endArray(std::size_t elementCount) override;

    // The reply's "code" and "message", absent when missing (or when the reply is not an object).
    [[nodiscard]] const Value& code() const noexcept { return code_; }
    [[nodiscard]] const Value& message() const noexcept { return message_; }
    // Whether the reply held a "data" object.
    [[nodiscard]] bool hasData() const noexcept { return hasData_; }
    // Applies the "data" object read, as InterestsSnapshot::applyInterests applies a decoded one.
    void applyTo(InterestsSnapshot& next) const;

private:
    // Where the reader stands: the containers of the reply it reads into.
    enum class Level { Reply, Data, Section, Element };
    // What becomes of the next value.
    enum class Next { Skip, Capture, Reply, Data, Section, Element };
    enum class Section { Having, Available, NoHaving };
    // The element keys that InterestFields holds, in its order.
    static constexpr std::size_t kFieldCount = 7;

    bool scalar(Value value);
    bool start(bool object);
    bool end(bool object, std::size_t count);
    void afterValue();
    void capture(Value* target);
    void openSection();
    void resetData();
    void addRecord(const InterestFields& fields);

    const InterestsSnapshot::ReplyForm form_;
    std::vector<Level> levels_;
    Next next_ = Next::Reply;
    std::size_t skipDepth_ = 0;     // containers open inside a value being skipped
    std::size_t captureDepth_ = 0;  // containers open inside a value being captured
    Value* captureTarget_ = nullptr;
    JsonValueBuilder builder_;

    Value code_;
    Value message_;
    bool hasData_ = false;
    Value timestamp_;
    Section section_ = Section::Having;
    std::shared_ptr<InterestsSnapshot::HavingList> having_;
    std::shared_ptr<InterestsSnapshot::TriableList> available_;
    std::shared_ptr<InterestsSnapshot::NoHavingList> noHaving_;
    std::array<Value, kFieldCount> fields_;
    std::array<bool, kFieldCount> present_{};
};

}  // namespace nb
