#ifndef RECORDS_RECORD_FIELDS_H
#define RECORDS_RECORD_FIELDS_H

#include <tuple>

namespace vesk::wardend::detail {

template <typename Visitor, typename... Fields>
void VisitAll(Visitor& visitor, Fields&... fields) {
    (visitor(fields), ...);  // left to right: the wire order
}

}  // namespace vesk::wardend::detail

// Declares the member template enumerate (mutable and const), which visits the listed fields in
// this order, and a member-by-member operator==. The list is the record's wire order.
#define WARDEND_RECORD_FIELDS(Type, ...)                         \
    template <typename Visitor>                                  \
    void enumerate(Visitor& visitor) {                           \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__); \
    }                                                            \
    template <typename Visitor>                                  \
    void enumerate(Visitor& visitor) const {                     \
        ::vesk::wardend::detail::VisitAll(visitor, __VA_ARGS__); \
    }                                                            \
    auto Tie() const {                                           \
        return std::tie(__VA_ARGS__);                            \
    }                                                            \
    bool operator==(const Type& other) const {                   \
        return Tie() == other.Tie();                             \
    }                                                            \
    bool operator!=(const Type& other) const {                   \
        return !(*this == other);                                \
    }

#endif
