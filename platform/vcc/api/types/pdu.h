#ifndef PLATFORM_VCC_API_TYPES_PDU_H
#define PLATFORM_VCC_API_TYPES_PDU_H

// The layout of a signal-based event: a PDU of a static length holding iSignals at given bit
// positions. The EventInfo of such an event holds it through a shared reference.

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "platform/core/string.h"

namespace lumo::vcc::api::types {

struct ISignal {
    static constexpr std::uint8_t kIntel = 1;  // least significant first; anything else Motorola

    ara::core::String name;
    std::uint64_t startBit{0};
    std::uint64_t bitLength{0};
    std::uint8_t byteOrder{kIntel};
};

class Pdu {
public:
    Pdu(ara::core::String name, std::uint64_t lengthWithoutDynamic,
        std::vector<std::shared_ptr<ISignal>> signals)
        : name_(std::move(name)),
          lengthWithoutDynamic_(lengthWithoutDynamic),
          signals_(std::move(signals)) {}

    const ara::core::String& Name() const { return name_; }
    std::uint64_t ISignalCount() const { return signals_.size(); }
    // Bytes of the static part.
    std::uint64_t LengthWithoutDynamic() const { return lengthWithoutDynamic_; }
    // Null past the last iSignal.
    std::shared_ptr<ISignal> operator[](const unsigned long& index) const {
        return index < signals_.size() ? signals_[index] : nullptr;
    }

private:
    ara::core::String name_;
    std::uint64_t lengthWithoutDynamic_;
    std::vector<std::shared_ptr<ISignal>> signals_;
};

}  // namespace lumo::vcc::api::types

#endif
