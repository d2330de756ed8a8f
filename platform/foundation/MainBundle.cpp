#include "nbbase/foundation/MainBundle.h"

#include <mutex>
#include <system_error>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/PropertyList.h"

namespace nb {

namespace {

std::filesystem::path executablePath() {
#if defined(__APPLE__)
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string buf(size, '\0');
    if (_NSGetExecutablePath(buf.data(), &size) != 0) return {};
    return std::filesystem::path(buf.c_str());
#else
    std::error_code ec;
    std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::path() : exe;
#endif
}

std::shared_ptr<const MainBundle> bundleBesideExecutable() {
    const std::filesystem::path folder = executablePath().parent_path();
    if (auto bundle = MainBundle::fromFolder(folder)) return bundle;
    return std::make_shared<const MainBundle>(Value(), folder);
}

struct MainBundleSlot {
    std::mutex mutex;
    std::shared_ptr<const MainBundle> bundle;  // guarded by mutex; null until first use
};

MainBundleSlot& slot() {
    static MainBundleSlot* const instance = new MainBundleSlot();
    return *instance;
}

}  // namespace

MainBundle::MainBundle(Value infoDictionary, std::filesystem::path bundlePath)
    : info_(infoDictionary.isDictionary() ? std::move(infoDictionary) : Value(Value::Dictionary())),
      path_(std::move(bundlePath)) {}

std::shared_ptr<const MainBundle> MainBundle::fromFolder(const std::filesystem::path& folder) {
    const std::filesystem::path file = folder / "Info.plist";
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec)) return nullptr;
    Value info = PropertyList::readFile(file);
    if (!info.isDictionary()) {
        NBLog::sharedInstance().log(4, "unreadable bundle information {}", file.string());
        return nullptr;
    }
    return std::make_shared<const MainBundle>(std::move(info), folder);
}

std::shared_ptr<const MainBundle> MainBundle::main() {
    MainBundleSlot& s = slot();
    std::lock_guard lock(s.mutex);
    if (!s.bundle) s.bundle = bundleBesideExecutable();
    return s.bundle;
}

void MainBundle::setMain(std::shared_ptr<const MainBundle> bundle) {
    MainBundleSlot& s = slot();
    std::lock_guard lock(s.mutex);
    s.bundle = std::move(bundle);
}

std::string MainBundle::bundleIdentifier() const { return info_["CFBundleIdentifier"].stringValue(); }
std::string MainBundle::shortVersionString() const { return info_["CFBundleShortVersionString"].stringValue(); }
std::string MainBundle::bundleVersion() const { return info_["CFBundleVersion"].stringValue(); }

std::string MainBundle::executableName() const {
    std::string name = info_["CFBundleExecutable"].stringValue();
    return name.empty() ? executablePath().filename().string() : name;
}

}  // namespace nb
