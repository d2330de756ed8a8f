// Reluctant: a plug-in whose initialize answers NO, as one would whose licence or device is missing. The host
// logs the failure and starts it anyway; it must cope with running unprepared.
#include <string>

#include "nbbase/core/NBPluginProtocol.h"
#include "nbbase/foundation/NBLog.h"

namespace {

class ReluctantPlugin final : public nb::NBPluginProtocol {
public:
    std::string name() const override { return "Reluctant"; }

    bool initialize() override { return false; }

    bool start() override {
        nb::NBLog::sharedInstance().write(2, "Reluctant: started without being prepared");
        return true;
    }

    void stop() override {}
    void uninitialize() override {}
};

}  // namespace

NB_PLUGIN_PRINCIPAL_CLASS(ReluctantPlugin)
