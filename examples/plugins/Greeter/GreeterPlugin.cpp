// Greeter: a plug-in to copy when writing one. It prepares nothing, listens for the application's start
// event while it runs, and says so in the library's log.
#include <optional>
#include <string>

#include "nbbase/NBConstants.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NBPluginProtocol.h"
#include "nbbase/foundation/NBLog.h"

namespace {

class GreeterPlugin final : public nb::NBPluginProtocol {
public:
    std::string name() const override { return "Greeter"; }

    bool initialize() override { return true; }

    // The host posts the start event after every plug-in has started, and the event centre delivers it
    // on the main queue, so the listener registered here hears it.
    bool start() override {
        listener_ = nb::NBEventCenter::sharedInstance().addEventListenerForName(
            nb::NIMBO_EVENT_APP_STARTED, nullptr, nullptr, [](const nb::Notification& event) {
                nb::NBLog::sharedInstance().log(2, "Greeter: heard {}", event.name);
            });
        nb::NBLog::sharedInstance().write(2, "Greeter: started");
        return true;
    }

    void stop() override {
        if (listener_) nb::NBEventCenter::sharedInstance().removeListener(*listener_);
        listener_.reset();
        nb::NBLog::sharedInstance().write(2, "Greeter: stopped");
    }

    void uninitialize() override {}

private:
    std::optional<nb::ObserverToken> listener_;
};

}  // namespace

NB_PLUGIN_PRINCIPAL_CLASS(GreeterPlugin)
