#ifndef PLATFORM_COMPILER_FORCE_INLINE_H
#define PLATFORM_COMPILER_FORCE_INLINE_H

// Marks a function that the serializers need inlined into its caller, so that a walk over a
// record keeps its running state in registers. Only optimizing builds force it: at -O0 it gains
// nothing and makes the sanitizer builds compile for minutes. Builds that optimize but do not
// measure speed (the fuzzers) turn it off with WARDEND_NO_FORCE_INLINE for the same reason.
#if defined(__OPTIMIZE__) && !defined(WARDEND_NO_FORCE_INLINE)
#define WARDEND_FORCE_INLINE [[gnu::always_inline]]
#else
#define WARDEND_FORCE_INLINE
#endif

#endif
