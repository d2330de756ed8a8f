#include "nbbase/entitlements/InterestsReplyReader.h"

#include <utility>

#include "nbbase/entitlements/HavingInterest.h"
#include "nbbase/entitlements/NoHavingInterest.h"
#include "nbbase/entitlements/TriableInterest.h"

namespace nb {
namespace {

// The element keys in the order of the reader's field slots, which is InterestFields' order.
constexpr std::string_view kFieldKeys[] = {"type",         "end_time", "extra_data", "product_id",
                                           "product_name", "property", "expire_time"};

}  // namespace

InterestsReplyReader::InterestsReplyReader(InterestsSnapshot::ReplyForm form) : form_(form) { levels_.reserve(8); }

bool InterestsReplyReader::null() {
    if (skipDepth_ > 0) return true;
    if (captureDepth_ > 0) return builder_.null();
    return scalar(Value::null());
}

bool InterestsReplyReader::boolean(bool b) {
    if (skipDepth_ > 0) return true;
    if (captureDepth_ > 0) return builder_.boolean(b);
    return scalar(Value(b));
}

bool InterestsReplyReader::number(Value number) {
    if (skipDepth_ > 0) return true;
    if (captureDepth_ > 0) return builder_.number(std::move(number));
    return scalar(std::move(number));
}

bool InterestsReplyReader::string(std::string_view s) {
    if (skipDepth_ > 0) return true;
    if (captureDepth_ > 0) return builder_.string(s);
    // Only a captured string is kept; the others need no copy.
    return scalar(next_ == Next::Capture ? Value(std::string(s)) : Value());
}

bool InterestsReplyReader::key(std::string_view key) {
    if (skipDepth_ > 0) return true;
    if (captureDepth_ > 0) return builder_.key(key);
    next_ = Next::Skip;
    switch (levels_.back()) {
        case Level::Reply:
            if (key == "code") capture(&code_);
            if (key == "message") capture(&message_);
            if (key == "data") next_ = Next::Data;
            break;
        case Level::Data:
            if (key == "timestamp") capture(&timestamp_);
            if (key == "having") section_ = Section::Having;
            if (key == "available_present") section_ = Section::Available;
            if (key == "no_having") section_ = Section::NoHaving;
            if (key == "having" || key == "available_present" ||
                (key == "no_having" && form_ == InterestsSnapshot::ReplyForm::Full)) {
                next_ = Next::Section;
            }
            break;
        case Level::Element:
            for (std::size_t i = 0; i < kFieldCount; ++i) {
                if (key != kFieldKeys[i]) continue;
                present_[i] = true;
                capture(&fields_[i]);
                break;
            }
            break;
        case Level::Section: break;  // arrays have no keys
    }
    return true;
}

bool InterestsReplyReader::startObject() { return start(true); }
bool InterestsReplyReader::endObject(std::size_t memberCount) { return end(true, memberCount); }
bool InterestsReplyReader::startArray() { return start(false); }
bool InterestsReplyReader::endArray(std::size_t elementCount) { return end(false, elementCount); }

void InterestsReplyReader::applyTo(InterestsSnapshot& next) const {
    next.currentTS = timestamp_.longLongValue();
    if (having_) next.havingInterests = having_;
    if (available_) next.availableIntrests = available_;
    if (noHaving_) next.noHavingInterests = noHaving_;
}

bool InterestsReplyReader::scalar(Value value) {
    switch (next_) {
        case Next::Skip:
        case Next::Reply: break;
        case Next::Capture: *captureTarget_ = std::move(value); break;
        case Next::Data:
            resetData();
            hasData_ = false;
            break;
        case Next::Section: openSection(); break;
        case Next::Element: addRecord(InterestFields{}); break;
    }
    afterValue();
    return true;
}

bool InterestsReplyReader::start(bool object) {
    if (skipDepth_ > 0) {
        ++skipDepth_;
        return true;
    }
    if (captureDepth_ > 0) {
        ++captureDepth_;
        return object ? builder_.startObject() : builder_.startArray();
    }
    // What the value opens, or skipDepth_ 1 when nothing in it is read.
    std::optional<Level> level;
    switch (next_) {
        case Next::Skip: break;
        case Next::Capture:
            captureDepth_ = 1;
            return object ? builder_.startObject() : builder_.startArray();
        case Next::Reply:
            if (object) level = Level::Reply;
            break;
        case Next::Data:
            resetData();
            hasData_ = object;
            if (object) level = Level::Data;
            break;
        case Next::Section:
            openSection();
            if (!object) level = Level::Section;
            break;
        case Next::Element:
            if (object) {
                present_.fill(false);
                level = Level::Element;
            } else {
                addRecord(InterestFields{});
            }
            break;
    }
    if (!level) {
        skipDepth_ = 1;
        return true;
    }
    levels_.push_back(*level);
    afterValue();
    return true;
}

bool InterestsReplyReader::end(bool object, std::size_t count) {
    if (skipDepth_ > 0) {
        if (--skipDepth_ == 0) afterValue();
        return true;
    }
    if (captureDepth_ > 0) {
        const bool carryOn = object ? builder_.endObject(count) : builder_.endArray(count);
        if (--captureDepth_ == 0) {
            *captureTarget_ = builder_.take();
            afterValue();
        }
        return carryOn;
    }
    const Level level = levels_.back();
    levels_.pop_back();
    if (level == Level::Element) {
        const auto field = [this](std::size_t i) { return present_[i] ? &fields_[i] : nullptr; };
        addRecord(InterestFields{.type = field(0),
                                 .endTime = field(1),
                                 .extraData = field(2),
                                 .productId = field(3),
                                 .productName = field(4),
                                 .property = field(5),
                                 .expireTime = field(6)});
    }
    afterValue();
    return true;
}

// Inside a section every value is an element; inside an object the next key says.
void InterestsReplyReader::afterValue() {
    next_ = !levels_.empty() && levels_.back() == Level::Section ? Next::Element : Next::Skip;
}

void InterestsReplyReader::capture(Value* target) {
    next_ = Next::Capture;
    captureTarget_ = target;
}

void InterestsReplyReader::openSection() {
    switch (section_) {
        case Section::Having: having_ = std::make_shared<InterestsSnapshot::HavingList>(); break;
        case Section::Available: available_ = std::make_shared<InterestsSnapshot::TriableList>(); break;
        case Section::NoHaving: noHaving_ = std::make_shared<InterestsSnapshot::NoHavingList>(); break;
    }
}

// A repeated "data" replaces the whole of the earlier one.
void InterestsReplyReader::resetData() {
    timestamp_ = Value();
    having_.reset();
    available_.reset();
    noHaving_.reset();
}

void InterestsReplyReader::addRecord(const InterestFields& fields) {
    switch (section_) {
        case Section::Having: having_->push_back(InterestsSnapshot::havingRecord(fields, form_)); break;
        case Section::Available: available_->push_back(InterestsSnapshot::availableRecord(fields, form_)); break;
        case Section::NoHaving: noHaving_->push_back(NoHavingInterest::fromFields(fields)); break;
    }
}

}  // namespace nb
