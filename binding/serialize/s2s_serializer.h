#ifndef BINDING_SERIALIZE_S2S_SERIALIZER_H
#define BINDING_SERIALIZE_S2S_SERIALIZER_H

// Signal-based serialization: one value into one iSignal of a PDU, bit by bit, in Intel (least
// significant byte first) or Motorola order. Bits are OR-ed into a buffer that comes zeroed.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "binding/serialize/serialize_log.h"
#include "binding/serialize/serialize_traits.h"
#include "platform/vcc/api/types/pdu.h"

namespace lumo::serialize::s2s {

// Writes a 16-bit value into iSignal `signalIndex`. False, with a log line, when the signal is
// outside the PDU or the buffer, or wider than 16 bits; the buffer is then untouched.
bool WriteSignal(std::uint16_t value, const vcc::api::types::Pdu& pdu, std::uint64_t signalIndex,
                 unsigned char* buffer, std::size_t bufferSize);

// Only 16-bit integers have an S2S form here; every other type logs and is skipped.
template <typename T>
class Serializer {
public:
    Serializer(const T& value, std::shared_ptr<const vcc::api::types::Pdu> pdu,
               std::uint64_t signalIndex)
        : value_(&value), pdu_(std::move(pdu)), signalIndex_(signalIndex) {}
    // The serializer keeps a pointer to the value: a temporary would dangle.
    Serializer(const T&& value, std::shared_ptr<const vcc::api::types::Pdu> pdu,
               std::uint64_t signalIndex) = delete;

    bool Serialize(unsigned char* buffer, std::size_t bufferSize) const {
        if constexpr (std::is_integral_v<T> && sizeof(T) == 2) {
            if (pdu_ == nullptr) {
                return false;
            }
            return WriteSignal(static_cast<std::uint16_t>(*value_), *pdu_, signalIndex_, buffer,
                               bufferSize);
        } else if constexpr (serialize::detail::IsVector<T>::value) {
            (void)buffer;
            (void)bufferSize;
            S2SLog().LogError() << "[S2S Serializer Vector] The type is not supported!";
            return false;
        } else {
            (void)buffer;
            (void)bufferSize;
            S2SLog().LogError() << "[S2S Serializer] The type is not supported!";
            return false;
        }
    }

private:
    const T* value_;
    std::shared_ptr<const vcc::api::types::Pdu> pdu_;
    std::uint64_t bitOffset_{0};  // stays 0: no value here is split over signals
    std::uint64_t signalIndex_;
};

// Writes the members of a record one iSignal each, counting the signal index up by one for every
// member, those without an S2S form included.
class SignalEnumerator {
public:
    SignalEnumerator(std::shared_ptr<const vcc::api::types::Pdu> pdu, unsigned char* buffer,
                     std::size_t bufferSize)
        : pdu_(std::move(pdu)), buffer_(buffer), bufferSize_(bufferSize) {}

    template <typename M>
    void operator()(const M& member) {
        if constexpr (serialize::detail::IsRecord<M>::value) {
            member.enumerate(*this);
        } else {
            Serializer<M>(member, pdu_, signalIndex_++).Serialize(buffer_, bufferSize_);
        }
    }

    std::uint64_t SignalCount() const { return signalIndex_; }

private:
    std::shared_ptr<const vcc::api::types::Pdu> pdu_;
    unsigned char* buffer_;
    std::size_t bufferSize_;
    std::uint64_t signalIndex_{0};
};

}  // namespace lumo::serialize::s2s

#endif
