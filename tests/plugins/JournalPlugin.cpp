// A plug-in for the host's tests, built several times over (tests/plugins/CMakeLists.txt) with the class
// name, the answers and the declared protocol set by definitions. Every call is written to the shared log
// at level 2 as "<class> <operation>", so a test reads the order of calls beside the host's own lines.
#include <string>

#include "nbbase/core/NBPluginProtocol.h"
#include "nbbase/foundation/NBLog.h"

#ifndef INITIALIZE_ANSWER
#define INITIALIZE_ANSWER true
#endif
#ifndef START_ANSWER
#define START_ANSWER true
#endif
// Expands the class name before pasting or quoting it.
#define JOURNAL_TEXT(x) #x
#define JOURNAL_STRING(x) JOURNAL_TEXT(x)
#define JOURNAL_PASTE(a, b) a##b
#define JOURNAL_ENTRY(c) JOURNAL_PASTE(NBPluginClass_, c)
#define JOURNAL_PRINCIPAL(c) NB_PLUGIN_PRINCIPAL_CLASS(c)

namespace {

class PLUGIN_CLASS final : public nb::NBPluginProtocol {
public:
    std::string name() const override { return JOURNAL_STRING(PLUGIN_CLASS); }
    bool initialize() override { return note("initialize", INITIALIZE_ANSWER); }
    bool start() override { return note("start", START_ANSWER); }
    void stop() override { note("stop", true); }
    void uninitialize() override { note("uninitialize", true); }

private:
    bool note(const char* operation, bool answer) const {
        nb::NBLog::sharedInstance().log(2, "{} {}", name(), operation);
        return answer;
    }
};

}  // namespace

#if defined(DECLARED_PROTOCOL)
// A description written by hand, as a plug-in built against another protocol or an older header answers.
extern "C" __attribute__((visibility("default"))) const nb::NBPluginClass* JOURNAL_ENTRY(PLUGIN_CLASS)() {
    static const nb::NBPluginClass description{
        DECLARED_PROTOCOL, DECLARED_VERSION, JOURNAL_STRING(PLUGIN_CLASS),
        []() -> nb::NBPluginProtocol* { return new PLUGIN_CLASS(); },
        [](nb::NBPluginProtocol* plugin) { delete plugin; }};
    return &description;
}
#elif !defined(WITHOUT_ENTRY_POINT)
JOURNAL_PRINCIPAL(PLUGIN_CLASS)
#endif
