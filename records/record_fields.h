#ifndef RECORDS_RECORD_FIELDS_H
#define RECORDS_RECORD_FIELDS_H

#include <tuple>

namespace vesk::wardend::detail {

template <typename Visitor, typename... Fields>
[[gnu::always_inline]] inline void VisitAll(Visitor& visitor, Fields&... fields) {
    (visitor(fields), ...);  // left to right: the wire order
}

}  // namespace vesk::wardend::detail

// Declares the member template enumerate (mutable and const), which visits the listed fields in
// this order, and a member-by-member operator==. The list is the record's wire order. The walk
// is inlined into its caller, so that a serializer's running offset stays in a register.
#define WARDEND_RECORD_FIELDS(Type, ...)                            \
    template <typename Visitor>                                     \
    [[gnu::always_inline]] void enumerate(Visitor& visitor) {       \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__);    \
    }                                                               \
    template <typename Visitor>                                     \
    [[gnu::always_inline]] void enumerate(Visitor& visitor) const { \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__);    \
    }                                                               \
    auto Tie() const {                                              \
        return std::tie(__VA_ARGS__);                               \
    }                                                               \
    bool operator==(const Type& other) const {                      \
        return Tie() == other.Tie();                                \
    }                                                               \
    bool operator!=(const Type& other) const {                      \
        return !(*this == other);                                   \
    }

#endif
