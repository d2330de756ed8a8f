#include "nbbase/common/NBUtils.h"

#include "nbbase/foundation/MainBundle.h"

#ifndef NBBASE_DEFAULT_PAY_CHANNEL
#define NBBASE_DEFAULT_PAY_CHANNEL ""
#endif

namespace nb {

std::string NBUtils::getPayChannel() {
    const auto bundle = MainBundle::main();
    return bundle ? getPayChannel(*bundle) : std::string(NBBASE_DEFAULT_PAY_CHANNEL);
}

std::string NBUtils::getPayChannel(const MainBundle& bundle) {
    const std::string* channel = bundle.objectForInfoDictionaryKey("NIMBOPayChannel").asString();
    return channel != nullptr && !channel->empty() ? *channel : std::string(NBBASE_DEFAULT_PAY_CHANNEL);
}

std::string NBUtils::appVersion() {
    const auto bundle = MainBundle::main();
    return bundle ? appVersion(*bundle) : std::string();
}

std::string NBUtils::appVersion(const MainBundle& bundle) { return bundle.shortVersionString(); }

}  // namespace nb
