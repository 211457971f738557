#ifndef PLATFORM_COMPILER_BRANCH_HINT_H
#define PLATFORM_COMPILER_BRANCH_HINT_H

// A condition that the hot path of the serializers expects false (a short or malformed stream),
// so that the compiler lays out the expected path straight.
#define WARDEND_UNLIKELY(condition) (__builtin_expect(static_cast<long>(condition), 0L) != 0L)

#endif
