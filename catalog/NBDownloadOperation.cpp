#include "nbbase/catalog/NBDownloadOperation.h"

#include <utility>

namespace nb {

NBDownloadOperation::NBDownloadOperation(std::string downloadUrl, URLSession& session)
    : downloadUrl_(std::move(downloadUrl)), session_(session) {}

void NBDownloadOperation::main() {
    if (isCancelled()) return;
    URLSession::Response reply = session_.contentsOf({downloadUrl_, {}});
    if (!reply.succeeded()) return;
    if (const auto target = listener()) target->onFinish(downloadUrl_, std::move(reply.body));
}

std::shared_ptr<DownloadListener> NBDownloadOperation::listener() const {
    std::lock_guard lock(mutex_);
    return listener_.lock();
}

void NBDownloadOperation::setListener(std::weak_ptr<DownloadListener> listener) {
    std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

}  // namespace nb
