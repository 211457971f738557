#include "platform/vcc/driver/driver_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <mutex>
#include <vector>

#include "platform/log/log.h"

namespace lumo::vcc::driver {

namespace {

using ara::core::String;

// The directory of the running program, empty when /proc cannot tell.
String ProgramDir() {
    std::array<char, 4096> path{};
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length <= 0) {
        return {};
    }
    const String program(path.data(), static_cast<std::size_t>(length));
    return program.substr(0, program.rfind('/'));
}

bool Below(const String& path, const String& dir) {
    return path.size() > dir.size() && path.compare(0, dir.size(), dir) == 0 &&
           path[dir.size()] == '/';
}

std::vector<String> Candidates(const String& file) {
    std::vector<String> paths;
    const String programDir = ProgramDir();
    if (!programDir.empty()) {
        paths.push_back(programDir + "/" WARDEND_MODULE_RELATIVE_DIR "/" + file);
        if (Below(programDir, WARDEND_BUILD_DIR)) {
            paths.push_back(WARDEND_MODULE_BUILD_DIR "/" + file);
        }
    }
    paths.push_back(WARDEND_MODULE_INSTALL_DIR "/" + file);
    return paths;
}

// The handle of the first candidate that loads; null with the reasons appended to `why`.
void* OpenModule(const String& file, String& why) {
    for (const String& path : Candidates(file)) {
        if (::access(path.c_str(), F_OK) != 0) {
            why += "[" + path + ": not found]";
            continue;
        }
        // Never unloaded: the library's threads and exit handlers may outlive any one driver.
        if (void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
            return handle;
        }
        const char* error = ::dlerror();
        why += "[" + path + ": " + (error == nullptr ? "unknown error" : error) + "]";
    }
    return nullptr;
}

}  // namespace

std::shared_ptr<Driver> LoadDdsDriver(const String& cycloneConfig) {
    static std::mutex mutex;  // guards make: the module is opened once
    static WardendMakeDdsDriverFn make = nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    if (make == nullptr) {
        String why;
        void* handle = OpenModule(WARDEND_DDS_MODULE_FILE, why);
        void* symbol =
            handle == nullptr ? nullptr : ::dlsym(handle, WARDEND_MAKE_DDS_DRIVER_SYMBOL);
        if (symbol == nullptr) {
            if (handle != nullptr) {
                why += "[no entry point " WARDEND_MAKE_DDS_DRIVER_SYMBOL "]";
            }
            ara::tessel::common::log::Log::GetLog("CM")->LogError()
                << "[DriverModule][Load failed][DDS]" << why;
            return nullptr;
        }
        make = reinterpret_cast<WardendMakeDdsDriverFn>(symbol);
    }
    std::shared_ptr<Driver> driver;
    make(cycloneConfig.c_str(), &driver);
    return driver;
}

}  // namespace lumo::vcc::driver
