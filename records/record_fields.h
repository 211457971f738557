#ifndef RECORDS_RECORD_FIELDS_H
#define RECORDS_RECORD_FIELDS_H

#include <array>
#include <cstddef>
#include <tuple>

#include "platform/compiler/force_inline.h"

namespace vesk::wardend::detail {

template <typename Visitor, typename... Fields>
WARDEND_FORCE_INLINE inline void VisitAll(Visitor& visitor, Fields&... fields) {
    (visitor(fields), ...);  // left to right: the wire order
}

}  // namespace vesk::wardend::detail

// clang-format off
// WARDEND_FOR_EACH_FIELD(m, Type, f1, f2, ...) expands to m(Type, f1), m(Type, f2), ...
#define WARDEND_FE_1(m, T, x) m(T, x)
#define WARDEND_FE_2(m, T, x, ...) m(T, x), WARDEND_FE_1(m, T, __VA_ARGS__)
#define WARDEND_FE_3(m, T, x, ...) m(T, x), WARDEND_FE_2(m, T, __VA_ARGS__)
#define WARDEND_FE_4(m, T, x, ...) m(T, x), WARDEND_FE_3(m, T, __VA_ARGS__)
#define WARDEND_FE_5(m, T, x, ...) m(T, x), WARDEND_FE_4(m, T, __VA_ARGS__)
#define WARDEND_FE_6(m, T, x, ...) m(T, x), WARDEND_FE_5(m, T, __VA_ARGS__)
#define WARDEND_FE_7(m, T, x, ...) m(T, x), WARDEND_FE_6(m, T, __VA_ARGS__)
#define WARDEND_FE_8(m, T, x, ...) m(T, x), WARDEND_FE_7(m, T, __VA_ARGS__)
#define WARDEND_FE_9(m, T, x, ...) m(T, x), WARDEND_FE_8(m, T, __VA_ARGS__)
#define WARDEND_FE_10(m, T, x, ...) m(T, x), WARDEND_FE_9(m, T, __VA_ARGS__)
#define WARDEND_FE_11(m, T, x, ...) m(T, x), WARDEND_FE_10(m, T, __VA_ARGS__)
#define WARDEND_FE_12(m, T, x, ...) m(T, x), WARDEND_FE_11(m, T, __VA_ARGS__)
#define WARDEND_FE_13(m, T, x, ...) m(T, x), WARDEND_FE_12(m, T, __VA_ARGS__)
#define WARDEND_FE_14(m, T, x, ...) m(T, x), WARDEND_FE_13(m, T, __VA_ARGS__)
#define WARDEND_FE_15(m, T, x, ...) m(T, x), WARDEND_FE_14(m, T, __VA_ARGS__)
#define WARDEND_FE_16(m, T, x, ...) m(T, x), WARDEND_FE_15(m, T, __VA_ARGS__)
#define WARDEND_FE_17(m, T, x, ...) m(T, x), WARDEND_FE_16(m, T, __VA_ARGS__)
#define WARDEND_FE_18(m, T, x, ...) m(T, x), WARDEND_FE_17(m, T, __VA_ARGS__)
#define WARDEND_FE_19(m, T, x, ...) m(T, x), WARDEND_FE_18(m, T, __VA_ARGS__)
#define WARDEND_FE_20(m, T, x, ...) m(T, x), WARDEND_FE_19(m, T, __VA_ARGS__)
#define WARDEND_FE_21(m, T, x, ...) m(T, x), WARDEND_FE_20(m, T, __VA_ARGS__)
#define WARDEND_FE_22(m, T, x, ...) m(T, x), WARDEND_FE_21(m, T, __VA_ARGS__)
#define WARDEND_FE_23(m, T, x, ...) m(T, x), WARDEND_FE_22(m, T, __VA_ARGS__)
#define WARDEND_FE_24(m, T, x, ...) m(T, x), WARDEND_FE_23(m, T, __VA_ARGS__)
#define WARDEND_FE_PICK(_1, _2, _3, _4, _5, _6, _7, _8, _9, _10, _11, _12, _13, _14, _15, _16, _17, _18, _19, _20, _21, _22, _23, _24, name, ...) name
#define WARDEND_FOR_EACH_FIELD(m, T, ...) \
    WARDEND_FE_PICK(__VA_ARGS__, WARDEND_FE_24, WARDEND_FE_23, WARDEND_FE_22, WARDEND_FE_21, WARDEND_FE_20, WARDEND_FE_19, WARDEND_FE_18, WARDEND_FE_17, WARDEND_FE_16, WARDEND_FE_15, WARDEND_FE_14, WARDEND_FE_13, WARDEND_FE_12, WARDEND_FE_11, WARDEND_FE_10, WARDEND_FE_9, WARDEND_FE_8, WARDEND_FE_7, WARDEND_FE_6, WARDEND_FE_5, WARDEND_FE_4, WARDEND_FE_3, WARDEND_FE_2, WARDEND_FE_1, unused)(m, T, __VA_ARGS__)
// clang-format on

#define WARDEND_FIELD_OFFSET(Type, field) __builtin_offsetof(Type, field)

// Declares the member template enumerate (mutable and const), which visits the listed fields in
// this order, Tie, a member-by-member operator==, and FieldOffsets, the byte offset of each field
// in the object, from which writers find runs of adjacent fields to copy at once. The list is the
// record's wire order. The walk is inlined into its caller, so that a serializer's running offset
// stays in a register. Records hold standard containers, so they are not standard-layout; the
// offsets of their direct fields are still well defined on the compilers we build with.
#define WARDEND_RECORD_FIELDS(Type, ...)                                                    \
    template <typename Visitor>                                                             \
    WARDEND_FORCE_INLINE void enumerate(Visitor& visitor) {                                 \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__);                            \
    }                                                                                       \
    template <typename Visitor>                                                             \
    WARDEND_FORCE_INLINE void enumerate(Visitor& visitor) const {                           \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__);                            \
    }                                                                                       \
    WARDEND_FORCE_INLINE auto Tie() const {                                                 \
        return std::tie(__VA_ARGS__);                                                       \
    }                                                                                       \
    static constexpr auto FieldOffsets() {                                                  \
        _Pragma("GCC diagnostic push");                                                     \
        _Pragma("GCC diagnostic ignored \"-Winvalid-offsetof\"");                           \
        return std::array{WARDEND_FOR_EACH_FIELD(WARDEND_FIELD_OFFSET, Type, __VA_ARGS__)}; \
        _Pragma("GCC diagnostic pop");                                                      \
    }                                                                                       \
    bool operator==(const Type& other) const {                                              \
        return Tie() == other.Tie();                                                        \
    }                                                                                       \
    bool operator!=(const Type& other) const {                                              \
        return !(*this == other);                                                           \
    }

#endif
