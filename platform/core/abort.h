#ifndef PLATFORM_CORE_ABORT_H
#define PLATFORM_CORE_ABORT_H

#include <cstdio>
#include <cstdlib>

namespace ara::core {

// Writes the text to standard error and ends the process abnormally.
[[noreturn]] inline void Abort(const char* text) noexcept {
    std::fprintf(stderr, "%s\n", text != nullptr ? text : "");
    std::fflush(stderr);
    std::abort();
}

}  // namespace ara::core

#endif
