// Any bytes as a task reply: the text before the first NUL byte is the reply, what follows it (when there
// is a NUL) the task id asked for. The record must hold the fields of the element the choice rule picks (the
// first carrying the id, else the first), tips must stay the default unless that element's description is
// the JSON text of an object, and a fresh record is never valid. The link's query must read as strings.
//
// Seed: examples/replies/getSceneTasks.json (with "\0svip-watch-ads-60m" appended for a second seed).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "nbbase/common/NBJsonUtils.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/support/NBSceneTask.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

const nb::Value& expectedChoice(const nb::Value& tasks, const std::optional<std::string>& id) {
    if (id && !id->empty()) {
        for (std::size_t i = 0; i < tasks.size(); ++i) {
            if (tasks[i]["task_id"].textValue() == id) return tasks[i];
        }
    }
    return tasks[0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string reply(input.substr(0, nul));
    const std::optional<std::string> id =
        nul == std::string_view::npos ? std::nullopt : std::optional<std::string>(input.substr(nul + 1));

    const nb::NBSceneTask task(reply, id);

    const auto decoded = nb::Json::decode(reply);
    const nb::Value tasks = decoded && decoded->isDictionary() ? (*decoded)["data"] : nb::Value();
    const nb::Value& chosen = tasks.isArray() ? expectedChoice(tasks, id) : nb::Value();
    check(task.taskId() == chosen["task_id"].textValue());
    check(task.name() == chosen["task_name"].textValue());
    check(task.type() == chosen["task_type"].textValue());
    check(task.gotoURL() == chosen["goto_complete"].textValue());
    if (id && !id->empty() && tasks.isArray()) {
        for (std::size_t i = 0; i < tasks.size(); ++i) {
            if (tasks[i]["task_id"].textValue() == id) {
                check(task.taskId() == id);
                break;
            }
        }
    }

    const std::string* description = chosen["description"].asString();
    const auto inner = description ? nb::Json::decode(*description) : std::nullopt;
    if (inner && inner->isDictionary()) {
        check(task.tips() == (*inner)["scene_desc"].textValue());
    } else {
        check(task.tips() == std::string(nb::NBSceneTask::kDefaultTips));
    }

    check(task.qrCodeImageData().isAbsent() && task.fromScene() == 0 && !task.isValid());

    const nb::Value query = nb::NBJsonUtils::dictionaryWithURL(task.gotoURL());
    check(query.isDictionary());
    for (const auto& [name, value] : *query.asDictionary()) check(value.isString());
    return 0;
}
