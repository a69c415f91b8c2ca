#include "mail/MailWire.h"

#include "core/Platform.h"

#include <stdexcept>

namespace vellira {

namespace {

struct Loaded {
    const MailWire* wire = nullptr;
    std::string failure;
};

Loaded load() {
#ifdef VELLIRA_MAIL_WIRE_LINKED
    return {vellira_mail_wire(), {}};
#else
    Loaded loaded;
    if (void* entry = moduleFunction(VELLIRA_MAIL_WIRE_PATH, "vellira_mail_wire", loaded.failure))
        loaded.wire = reinterpret_cast<const MailWire* (*)()>(entry)();
    return loaded;
#endif
}

}  // namespace

const MailWire& mailWire() {
    static const Loaded loaded = load();
    if (!loaded.wire) throw std::runtime_error("cannot load the mail transport: " + loaded.failure);
    return *loaded.wire;
}

}  // namespace vellira
