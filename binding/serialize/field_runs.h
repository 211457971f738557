#ifndef BINDING_SERIALIZE_FIELD_RUNS_H
#define BINDING_SERIALIZE_FIELD_RUNS_H

// Runs of a record's fields that lie next to each other in the object and go to the wire as
// their bytes stand: a writer copies such a run at once instead of field by field. The runs are
// found at compile time from the record's FieldOffsets, so each copy has a constant size.

#include <cstddef>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/compiler/force_inline.h"

namespace lumo::serialize::detail {

template <typename R>
using FieldTuple = decltype(std::declval<const R&>().Tie());

template <typename R>
inline constexpr std::size_t kFieldCount = std::tuple_size_v<FieldTuple<R>>;

template <typename R, std::size_t I>
using FieldAt = std::remove_cv_t<std::remove_reference_t<std::tuple_element_t<I, FieldTuple<R>>>>;

// AsIs<M>::value: a field of type M is written as the bytes it holds.
template <typename R, template <typename> class AsIs>
struct FieldRuns {
    static constexpr auto kOffsets = R::FieldOffsets();

    // Whether field I continues the run of field I - 1.
    template <std::size_t I>
    static constexpr bool Joins() {
        if constexpr (I > 0 && I < kFieldCount<R>) {
            if constexpr (AsIs<FieldAt<R, I>>::value && AsIs<FieldAt<R, I - 1>>::value) {
                return kOffsets[I] == kOffsets[I - 1] + sizeof(FieldAt<R, I - 1>);
            }
        }
        return false;
    }

    // The first field of the run that field I belongs to.
    template <std::size_t I>
    static constexpr std::size_t First() {
        if constexpr (Joins<I>()) {
            return First<I - 1>();
        } else {
            return I;
        }
    }

    // Whether field I ends its run: the writer copies the run there.
    template <std::size_t I>
    static constexpr bool Ends() {
        return !Joins<I + 1>();
    }

    // Where in the object the run that ends at field I starts, and its bytes.
    template <std::size_t I>
    static constexpr std::size_t Start() {
        return kOffsets[First<I>()];
    }
    template <std::size_t I>
    static constexpr std::size_t Length() {
        return kOffsets[I] + sizeof(FieldAt<R, I>) - Start<I>();
    }

    // Copies the run that ends at field I to out, if field I ends one; returns the bytes copied.
    template <std::size_t I>
    WARDEND_FORCE_INLINE static std::size_t CopyRunEndingAt(const R& record, unsigned char* out) {
        if constexpr (Ends<I>()) {
            std::memcpy(out, reinterpret_cast<const unsigned char*>(&record) + Start<I>(),
                        Length<I>());
            return Length<I>();
        } else {
            (void)record;
            (void)out;
            return 0;
        }
    }
};

}  // namespace lumo::serialize::detail

#endif
