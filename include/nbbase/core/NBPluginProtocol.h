// NBPluginProtocol: what a plug-in's principal class implements, and how its shared library hands that class
// to the host.
//
// A plug-in is a folder Name.nbp in the application's "PlugIns" folder (see NBPluginBundle.h for the layout).
// Its library defines one class derived from NBPluginProtocol and names it with NB_PLUGIN_PRINCIPAL_CLASS:
//
//     class GreeterPlugin final : public nb::NBPluginProtocol { ... };
//     NB_PLUGIN_PRINCIPAL_CLASS(GreeterPlugin)
//
// The macro defines the C entry point extern "C" const nb::NBPluginClass* NBPluginClass_GreeterPlugin(),
// which the host finds with dlsym from the class name in the bundle's Info.plist. The answer, an
// NBPluginClass, describes the class: the protocol it declares and the version of this header it was built
// against, its name, and how to create and destroy an object. The host refuses a class whose protocol name
// or version differs from its own (NBCorePlatform::validatePluginClass), so a plug-in built against an
// incompatible header is never called. Change kNBPluginProtocolVersion whenever NBPluginProtocol's virtual
// functions or NBPluginClass's layout change.
//
// Plug-ins and the host link the same libnbbase, so a plug-in may use every class of the library
// (NBLog::sharedInstance(), NBEventCenter::sharedInstance(), ...), and C++ objects may cross the boundary.
//
// Threads: the host calls every operation on the thread that calls NBCorePlatform's start and stop, the main
// thread of a client. An exception thrown out of an operation is caught by the host and counts as a failure;
// do not rely on it.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace nb {

class NBPluginProtocol {
public:
    virtual ~NBPluginProtocol() = default;

    // The plug-in's name, used in the host's log lines.
    virtual std::string name() const = 0;
    // Prepares the plug-in; false reports a failure. The host still calls start() afterwards.
    virtual bool initialize() = 0;
    // Starts the plug-in's work; false reports a failure.
    virtual bool start() = 0;
    // Stops the work. Always followed by uninitialize().
    virtual void stop() = 0;
    // Releases what initialize() prepared.
    virtual void uninitialize() = 0;
};

inline constexpr char kNBPluginProtocolName[] = "NBPluginProtocol";
inline constexpr std::uint32_t kNBPluginProtocolVersion = 1;

// The entry point's prefix: the host looks up kNBPluginEntryPointPrefix + the principal class's name.
inline constexpr char kNBPluginEntryPointPrefix[] = "NBPluginClass_";

extern "C" {
// A class description, as a plug-in's entry point answers it. The two protocol fields come first and will
// stay first in every later version, so that the host can always read them and refuse what it does not know.
struct NBPluginClass {
    const char* protocolName;        // kNBPluginProtocolName when the class declares the protocol
    std::uint32_t protocolVersion;   // kNBPluginProtocolVersion of the header the plug-in was built with
    const char* className;
    NBPluginProtocol* (*create)();            // the plain init: a new object, or null on failure
    void (*destroy)(NBPluginProtocol* plugin);  // deletes an object made by create, in the plug-in's code
};
}

}  // namespace nb

// Defines the entry point for Class, which must derive from nb::NBPluginProtocol and have a default
// constructor. Use it once per principal class, at namespace scope, outside any namespace.
#define NB_PLUGIN_PRINCIPAL_CLASS(Class)                                                                  \
    static_assert(std::is_base_of_v<::nb::NBPluginProtocol, Class>, #Class " must derive from NBPluginProtocol"); \
    extern "C" __attribute__((visibility("default"))) const ::nb::NBPluginClass* NBPluginClass_##Class() {  \
        static const ::nb::NBPluginClass description{                                                     \
            ::nb::kNBPluginProtocolName, ::nb::kNBPluginProtocolVersion, #Class,                          \
            []() noexcept -> ::nb::NBPluginProtocol* {                                                    \
                try {                                                                                     \
                    return new Class();                                                                   \
                } catch (...) {                                                                           \
                    return nullptr;                                                                       \
                }                                                                                         \
            },                                                                                            \
            [](::nb::NBPluginProtocol* plugin) noexcept { delete plugin; }};                              \
        return &description;                                                                              \
    }
