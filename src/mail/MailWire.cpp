#include "mail/MailWire.h"

#include "core/Platform.h"

#ifndef VELLIRA_MAIL_WIRE_LINKED
#include <dlfcn.h>
#endif

#include <filesystem>
#include <stdexcept>

namespace vellira {

namespace {

#ifndef VELLIRA_MAIL_WIRE_LINKED
// The folder of the running program; the module's place is given relative
// to it (VELLIRA_MAIL_WIRE_PATH), the same in the build tree as installed.
std::filesystem::path programFolder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) return program.parent_path();
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&programFolder), &info) && info.dli_fname)
        return std::filesystem::absolute(info.dli_fname, error).parent_path();
    return {};
}
#endif

struct Loaded {
    const MailWire* wire = nullptr;
    std::string failure;
};

Loaded load() {
#ifdef VELLIRA_MAIL_WIRE_LINKED
    return {vellira_mail_wire(), {}};
#else
    const auto path = programFolder() / VELLIRA_MAIL_WIRE_PATH;
    // Kept loaded for the life of the process.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) return {nullptr, dlerror()};
    const auto entry = reinterpret_cast<const MailWire* (*)()>(dlsym(module, "vellira_mail_wire"));
    if (!entry) return {nullptr, pathText(path) + ": no mail entry point"};
    return {entry(), {}};
#endif
}

}  // namespace

const MailWire& mailWire() {
    static const Loaded loaded = load();
    if (!loaded.wire) throw std::runtime_error("cannot load the mail transport: " + loaded.failure);
    return *loaded.wire;
}

}  // namespace vellira
