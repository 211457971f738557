#ifndef BINDING_PROLOC_PROLOC_MEMORY_FACTORY_H
#define BINDING_PROLOC_PROLOC_MEMORY_FACTORY_H

#include <memory>

#include "binding/proloc/proloc_event_memory.h"
#include "binding/proloc/proloc_method_memory.h"

namespace lumo::driver::proloc {

// One process-wide store per type, made on first use and released at exit. Handed out by
// reference: a request that only uses the store copies no shared reference.
class ProlocMemoryFactory {
public:
    template <typename... Args>
    static const std::shared_ptr<ProlocRequestMemory<Args...>>& GetMethodRequestInstance() {
        static const auto instance = std::make_shared<ProlocRequestMemory<Args...>>();
        return instance;
    }
    template <typename Output>
    static const std::shared_ptr<ProlocReplyMemory<Output>>& GetMethodReplyInstance() {
        static const auto instance = std::make_shared<ProlocReplyMemory<Output>>();
        return instance;
    }
    template <typename T>
    static const std::shared_ptr<ProlocEventMemory<T>>& GetEventInstance() {
        static const auto instance = std::make_shared<ProlocEventMemory<T>>();
        return instance;
    }
};

}  // namespace lumo::driver::proloc

#endif
