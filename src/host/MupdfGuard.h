// Runs MuPDF calls inside MuPDF's exception frame and turns a MuPDF error into
// HostError, with MuPDF's own text.
//
// MuPDF unwinds with longjmp, so the body must not own C++ objects with
// destructors nor throw C++ exceptions: make those outside the body.
#pragma once

#include "core/DocumentHost.h"

extern "C" {
#include <mupdf/fitz.h>
}

#include <cstring>

namespace vellira {

template <typename Body>
void mupdfGuarded(fz_context* ctx, Body&& body) {
    // MuPDF reports some failures (a file it cannot repair) with code 0, so
    // failure is tracked apart from the code.
    volatile bool failed = false;
    volatile int code = 0;
    char message[256] = {};
    fz_try(ctx) { body(); }
    fz_catch(ctx) {
        failed = true;
        code = fz_caught(ctx);
        std::strncpy(message, fz_caught_message(ctx), sizeof message - 1);
    }
    if (failed) throw HostError(code == FZ_ERROR_SYNTAX ? HostError::kSyntax : HostError::kGeneric, message);
}

}  // namespace vellira
