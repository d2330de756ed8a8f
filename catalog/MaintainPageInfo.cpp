#include "nbbase/catalog/MaintainPageInfo.h"

#include <mutex>
#include <utility>

#include "nbbase/foundation/Url.h"

namespace nb {

struct MaintainPageInfo::State {
    mutable std::mutex mutex;
    std::optional<std::string> pageUrl;  // guarded by mutex
    bool fetched = false;                // guarded by mutex
};

namespace {

std::optional<std::string> pageUrlOf(const Value& reply) {
    const Value& page = reply["maintain_page"];
    if (page.isAbsent() || page.isNull()) return std::nullopt;
    return page.stringValue();
}

bool isValidPage(const std::optional<std::string>& page) {
    if (!page || page->empty()) return false;
    const auto url = Url::parse(*page);
    return url && !url->scheme().empty() && !url->host().empty();
}

}  // namespace

MaintainPageInfo& MaintainPageInfo::sharedInstance() {
    static MaintainPageInfo* const instance = new MaintainPageInfo();
    return *instance;
}

MaintainPageInfo::MaintainPageInfo(NimboSdkManager& sdkManager, DispatchQueue& background)
    : sdkManager_(sdkManager), background_(background), state_(std::make_shared<State>()) {}

void MaintainPageInfo::fetchConfig(std::function<void(bool valid)> completion) {
    background_.async([state = state_, sdk = sdkManager_.sdkInstance(), completion = std::move(completion)] {
        const Value reply = sdk ? sdk->getMaintainPageConfig() : Value();
        std::optional<std::string> page = pageUrlOf(reply);
        const bool valid = completion && isValidPage(page);
        {
            std::lock_guard lock(state->mutex);
            state->fetched = !reply.isAbsent();
            state->pageUrl = std::move(page);
        }
        if (completion) completion(valid);
    });
}

void MaintainPageInfo::parse(const Value& reply) {
    std::optional<std::string> page = pageUrlOf(reply);
    std::lock_guard lock(state_->mutex);
    state_->pageUrl = std::move(page);
}

std::optional<std::string> MaintainPageInfo::pageUrl() const {
    std::lock_guard lock(state_->mutex);
    return state_->pageUrl;
}

bool MaintainPageInfo::valid() const { return isValidPage(pageUrl()); }

bool MaintainPageInfo::fetched() const {
    std::lock_guard lock(state_->mutex);
    return state_->fetched;
}

}  // namespace nb
