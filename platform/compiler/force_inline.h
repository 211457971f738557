#ifndef PLATFORM_COMPILER_FORCE_INLINE_H
#define PLATFORM_COMPILER_FORCE_INLINE_H

// Marks a function that the serializers need inlined into its caller, so that a walk over a
// record keeps its running state in registers. Only optimizing builds force it: at -O0 the
// forced inlining gains nothing and makes the sanitizer builds compile for minutes.
#ifdef __OPTIMIZE__
#define WARDEND_FORCE_INLINE [[gnu::always_inline]]
#else
#define WARDEND_FORCE_INLINE
#endif

#endif
