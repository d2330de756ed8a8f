#include "nbbase/entitlements/InterestsReplyReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SameInterests.h"
#include "nbbase/foundation/Json.h"

namespace {

using nb::InterestsSnapshot;
using Form = InterestsSnapshot::ReplyForm;

constexpr nb::Json::DecodeOptions kFragments{.allowFragments = true};

// What the store applies from a reply read by the reader, and what it applied from the decoded reply before.
struct Applied {
    bool applied = false;
    InterestsSnapshot snapshot;
};

Applied readByReader(const std::string& text, Form form) {
    Applied result;
    nb::InterestsReplyReader reader(form);
    EXPECT_TRUE(nb::Json::read(text, kFragments, reader)) << text;
    if (reader.code().longLongValue() == 0 && reader.hasData()) {
        reader.applyTo(result.snapshot);
        result.applied = true;
    }
    return result;
}

Applied readByValue(const std::string& text, Form form) {
    Applied result;
    const auto reply = nb::Json::decode(text, kFragments);
    EXPECT_TRUE(reply.has_value()) << text;
    if ((*reply)["code"].longLongValue() == 0 && (*reply)["data"].isDictionary()) {
        result.snapshot.applyInterests((*reply)["data"], form);
        result.applied = true;
    }
    return result;
}

TEST(InterestsReplyReaderTest, ReadsWhatTheDecodedReplyGives) {
    const std::string held = R"({"type":5,"end_time":9,"extra_data":"[{\"game_id\":1,\"max_on_hook_time\":60}]"})";
    const struct {
        const char* what;
        std::string text;
        bool applied;
    } cases[] = {
        {"code after data", R"({"data":{"having":[)" + held + R"(]},"code":0})", true},
        {"refusing code after data", R"({"data":{"having":[)" + held + R"(]},"code":"7","message":{"a":[1]}})",
         false},
        {"second data wins", R"({"data":{"having":[)" + held + R"(],"timestamp":5},"data":{"no_having":[]}})", true},
        {"data object then not", R"({"data":{"having":[)" + held + R"(]},"data":[1,{"having":[]}]})", false},
        {"not then data object", R"({"data":"x","data":{"timestamp":"12"}})", true},
        {"second section wins", R"({"data":{"having":[)" + held + R"(],"having":[{"type":7}]}})", true},
        {"section not an array", R"({"data":{"having":{"type":5},"available_present":3}})", true},
        {"elements of every kind", R"({"data":{"no_having":[1,"t",null,[{"type":5}],{},{"type":5.9}]}})", true},
        {"repeated and nested element keys",
         R"({"data":{"available_present":[{"type":4,"extra_data":{"frame":[1]},"type":7,"product_id":[2,{"x":1}],)"
         R"("product_name":12,"skip":{"type":5},"extra_data":"{\"fps\":[60],\"fps\":90}","property":"2"}]}})",
         true},
        {"top level not an object", R"([{"code":0,"data":{"having":[]}}])", false},
        {"bare scalar", R"("text")", false},
        {"code of another kind", R"({"code":[1],"data":{"timestamp":1.5e3}})", true},
    };
    for (const auto& c : cases) {
        for (const Form form : {Form::Full, Form::Text}) {
            const Applied streamed = readByReader(c.text, form);
            const Applied decoded = readByValue(c.text, form);
            EXPECT_EQ(streamed.applied, c.applied) << c.what;
            EXPECT_EQ(decoded.applied, c.applied) << c.what;
            EXPECT_TRUE(nbtest::sameSnapshot(streamed.snapshot, decoded.snapshot)) << c.what;
        }
    }
}

}  // namespace
