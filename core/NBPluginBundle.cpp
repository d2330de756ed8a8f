#include "nbbase/core/NBPluginBundle.h"

#include <system_error>

#include <dlfcn.h>

#include <fmt/format.h>

#include "nbbase/foundation/PropertyList.h"

namespace nb {

namespace {

namespace fs = std::filesystem;

bool isCIdentifier(const std::string& name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
    for (const char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (!ok) return false;
    }
    return true;
}

// A relative path that stays inside the bundle: no root, no "..".
bool staysInside(const fs::path& relative) {
    if (relative.empty() || relative.has_root_path()) return false;
    for (const fs::path& part : relative) {
        if (part == "..") return false;
    }
    return true;
}

std::string lastDlError() {
    const char* text = dlerror();
    return text != nullptr ? text : "unknown error";
}

}  // namespace

NBPluginBundle::NBPluginBundle(fs::path path, Value info, std::string infoError)
    : path_(std::move(path)), info_(std::move(info)), infoError_(std::move(infoError)) {}

std::shared_ptr<NBPluginBundle> NBPluginBundle::bundleWithPath(const fs::path& path) {
    std::error_code ec;
    if (!fs::is_directory(path, ec)) return nullptr;
    const fs::path infoPath = path / kInfoFileName;
    Value info = PropertyList::readFile(infoPath);
    std::string infoError;
    if (!info.isDictionary()) {
        infoError = fs::exists(infoPath, ec) ? fmt::format("{} is not a dictionary property list", kInfoFileName)
                                             : fmt::format("no {}", kInfoFileName);
        info = Value::dictionary({});
    }
    return std::make_shared<NBPluginBundle>(path, std::move(info), std::move(infoError));
}

const NBPluginClass* NBPluginBundle::principalClass() {
    std::lock_guard lock(mutex_);
    if (!loaded_) {
        class_ = load();
        loaded_ = true;
    }
    return class_;
}

std::string NBPluginBundle::loadError() const {
    std::lock_guard lock(mutex_);
    return error_;
}

// Runs once, under mutex_.
const NBPluginClass* NBPluginBundle::load() {
    if (!infoError_.empty()) {
        error_ = infoError_;
        return nullptr;
    }
    const Value& className = info_["NSPrincipalClass"];
    if (!className.isString() || !isCIdentifier(className.stringValue())) {
        error_ = className.isString()
                     ? fmt::format("the principal class \"{}\" is not a C identifier", className.stringValue())
                     : "Info.plist names no principal class (NSPrincipalClass)";
        return nullptr;
    }
    const Value& executable = info_["CFBundleExecutable"];
    if (!executable.isString()) {
        error_ = "Info.plist names no library (CFBundleExecutable)";
        return nullptr;
    }
    const fs::path relative = fs::path(executable.stringValue()).lexically_normal();
    if (!staysInside(relative)) {
        error_ = fmt::format("the library \"{}\" is not inside the plug-in folder", executable.stringValue());
        return nullptr;
    }

    const fs::path library = path_ / relative;
    dlerror();
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        error_ = fmt::format("cannot load the library: {}", lastDlError());
        return nullptr;
    }
    // The handle is deliberately never closed (see the header).
    const std::string entryName = kNBPluginEntryPointPrefix + className.stringValue();
    dlerror();
    void* symbol = dlsym(handle, entryName.c_str());
    if (symbol == nullptr) {
        error_ = fmt::format("no entry point {}: {}", entryName, lastDlError());
        return nullptr;
    }
    using EntryPoint = const NBPluginClass* (*)();
    const NBPluginClass* description = reinterpret_cast<EntryPoint>(symbol)();
    if (description == nullptr) error_ = fmt::format("the entry point {} answered no class", entryName);
    return description;
}

}  // namespace nb
