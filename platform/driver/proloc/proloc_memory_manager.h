#ifndef PLATFORM_DRIVER_PROLOC_PROLOC_MEMORY_MANAGER_H
#define PLATFORM_DRIVER_PROLOC_PROLOC_MEMORY_MANAGER_H

// The untyped faces of the in-process stores. The stores themselves are templates of the
// binding (one per event type, argument list and result type); the in-process driver reaches
// them only through these bases.

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/driver/proloc/proloc_entity_index.h"

namespace lumo::driver::proloc {

// The event store of one sample type: clients, their queues of sample addresses, the last value
// of each field. A sample address points at the sample itself (a T) and is the client's loan.
class ProlocMemoryManager {
public:
    using ClientHandler = std::function<void()>;

    ProlocMemoryManager() = default;
    ProlocMemoryManager(const ProlocMemoryManager&) = delete;
    ProlocMemoryManager& operator=(const ProlocMemoryManager&) = delete;
    virtual ~ProlocMemoryManager() = default;

    virtual void EnableClient(const ProlocEntityIndex& index, unsigned long clientUid,
                              unsigned long cacheSize, bool isField, ClientHandler handler) = 0;
    virtual std::vector<const unsigned char*> ReadSamples(const ProlocEntityIndex& index,
                                                          unsigned long clientUid,
                                                          int maxCount) = 0;
    virtual void ReturnLoan(const ProlocEntityIndex& index, unsigned long clientUid,
                            const unsigned char* sample) = 0;
    virtual void SetClientHandler(ClientHandler handler, unsigned long clientUid,
                                  const ProlocEntityIndex& index) = 0;
    virtual void EraseClient(const ProlocEntityIndex& index, unsigned long clientUid) = 0;
    virtual std::uint64_t GetSampleCount(const ProlocEntityIndex& index,
                                         unsigned long clientUid) = 0;
};

// A request or reply store: records by entity and by address; the address is the loan key.
class ProlocMethodManager {
public:
    ProlocMethodManager() = default;
    ProlocMethodManager(const ProlocMethodManager&) = delete;
    ProlocMethodManager& operator=(const ProlocMethodManager&) = delete;
    virtual ~ProlocMethodManager() = default;

    virtual void ReturnLoan(const unsigned char* address, const ProlocEntityIndex& index) = 0;
    virtual void UnRegisterMethod(const ProlocEntityIndex& index) = 0;
};

}  // namespace lumo::driver::proloc

#endif
