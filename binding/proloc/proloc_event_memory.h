#ifndef BINDING_PROLOC_PROLOC_EVENT_MEMORY_H
#define BINDING_PROLOC_PROLOC_EVENT_MEMORY_H

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/driver/proloc/proloc_memory_manager.h"
#include "platform/log/log.h"

namespace lumo::driver::proloc {

// The in-process event store of one sample type. A sample is copied once for all clients;
// each client queues its address, which is also its loan.
//
// Locks: memoryMutex_ before a group's mutex, and memoryMutex_ is released as soon as the group
// mutex is held, so that one slow group does not hold up the others. Handlers of AddProlocData
// run with no lock held; the one of EnableClient runs under memoryMutex_.
template <typename T>
class ProlocEventMemory final : public ProlocMemoryManager {
public:
    ProlocEventMemory() : logger_(ara::tessel::common::log::Log::GetLog("CM")) {}

    // The server publishes a sample. A field's value is kept for clients that come later.
    void AddProlocData(const T& value, const ProlocEntityIndex& index, bool isField) {
        std::vector<ClientHandler> handlers;
        {
            std::unique_lock<std::mutex> memoryLock(memoryMutex_);
            if (isField) {
                fieldInitValues_[index] = std::make_shared<T>(value);
            }
            auto group = FindGroup(index);
            if (group == nullptr) {
                logger_->LogDebug() << "[ProlocEventMemory][Can't find event with client]["
                                    << index.GetProlocInfo() << "]";
                return;
            }
            std::lock_guard<std::mutex> groupLock(group->groupMutex);
            memoryLock.unlock();
            if (group->clients.empty()) {
                logger_->LogDebug() << "[ProlocEventMemory][SingleClientMap is empty, ignore]["
                                    << index.GetProlocInfo() << "]";
                return;
            }
            const auto sample = std::make_shared<T>(value);
            const auto* address = AddressOf(sample);
            logger_->LogDebug() << "Send proloc event[" << index.GetProlocInfo() << "]";
            for (auto& [uid, client] : group->clients) {
                client.samples.emplace(address, sample);
                // A cache size of 0 keeps the newest sample alone rather than popping nothing.
                if (!client.order.empty() && client.order.size() >= client.cacheSize) {
                    logger_->LogWarn("ProlocRequestMemory_AddProlocData",
                                     ara::tessel::common::log::LogLimitConfig{})
                        << "[ProlocEventMemory][Proloc event msg is full, oldest data wii be "
                           "discard][prolocInfo="
                        << index.GetProlocInfo() << ", clientUid=" << uid << "]";
                    client.samples.erase(client.order.front());
                    client.order.pop_front();
                }
                client.order.push_back(address);
                if (client.receiveHandler) {
                    handlers.push_back(client.receiveHandler);
                }
            }
        }
        for (const auto& handler : handlers) {
            handler();
        }
    }

    void EnableClient(const ProlocEntityIndex& index, unsigned long clientUid,
                      unsigned long cacheSize, bool isField, ClientHandler handler) override {
        std::lock_guard<std::mutex> memoryLock(memoryMutex_);
        logger_->LogDebug() << "Proloc enable client [" << index.GetProlocInfo()
                            << ", clientUid=" << clientUid << "]";
        ClientRecord record;
        record.receiveHandler = handler;
        record.cacheSize = cacheSize;
        bool hasInitValue = false;
        if (isField) {
            auto init = fieldInitValues_.find(index);
            if (init != fieldInitValues_.end()) {
                record.samples.emplace(AddressOf(init->second), init->second);
                record.order.push_back(AddressOf(init->second));
                hasInitValue = true;
            } else {
                logger_->LogWarn() << "Proloc field not have a init value client ["
                                   << index.GetProlocInfo() << ", clientUid=" << clientUid << "]";
            }
        }
        auto group = FindGroup(index);
        if (group != nullptr) {
            std::lock_guard<std::mutex> groupLock(group->groupMutex);
            group->clients.emplace(clientUid, std::move(record));  // a known uid keeps its record
        } else {
            group = std::make_shared<ClientGroup>();
            group->clients.emplace(clientUid, std::move(record));
            clientGroups_.emplace(index, group);
        }
        if (hasInitValue && handler) {
            handler();
        }
    }

    std::vector<const unsigned char*> ReadSamples(const ProlocEntityIndex& index,
                                                  unsigned long clientUid, int maxCount) override {
        std::vector<const unsigned char*> result;
        WithClient(index, clientUid, [&result, maxCount](ClientRecord& client) {
            while (static_cast<int>(result.size()) < maxCount && !client.order.empty()) {
                result.push_back(client.order.front());
                client.order.pop_front();
            }
        });
        return result;
    }

    void ReturnLoan(const ProlocEntityIndex& index, unsigned long clientUid,
                    const unsigned char* sample) override {
        WithClient(index, clientUid, [&](ClientRecord& client) {
            if (client.samples.erase(sample) != 0) {
                logger_->LogDebug() << "Event release memory successful[" << index.GetProlocInfo()
                                    << ", clientUid=" << clientUid << "]";
            } else {
                logger_->LogWarn("ProlocRequestMemory_ReturnLoan",
                                 ara::tessel::common::log::LogLimitConfig{})
                    << "Event [" << index.GetProlocInfo() << ", clientUid=" << clientUid
                    << "] release memory failed";
            }
        });
    }

    void SetClientHandler(ClientHandler handler, unsigned long clientUid,
                          const ProlocEntityIndex& index) override {
        WithClient(index, clientUid, [&handler](ClientRecord& client) {
            client.receiveHandler = std::move(handler);
        });
    }

    // Holds memoryMutex_ throughout, since an emptied group leaves the map.
    void EraseClient(const ProlocEntityIndex& index, unsigned long clientUid) override {
        std::lock_guard<std::mutex> memoryLock(memoryMutex_);
        auto group = FindGroup(index);
        if (group == nullptr) {
            return;
        }
        std::lock_guard<std::mutex> groupLock(group->groupMutex);
        if (group->clients.erase(clientUid) != 0) {
            logger_->LogVerbose() << "Proloc event client [" << index.GetProlocInfo()
                                  << ", clientUid=" << clientUid << "] erase successful";
        }
        if (group->clients.empty()) {
            logger_->LogVerbose() << "Proloc event client [" << index.GetProlocInfo()
                                  << "] all erase successful";
            clientGroups_.erase(index);
        }
    }

    std::uint64_t GetSampleCount(const ProlocEntityIndex& index, unsigned long clientUid) override {
        std::uint64_t count = 0;
        WithClient(index, clientUid,
                   [&count](ClientRecord& client) { count = client.order.size(); });
        return count;
    }

private:
    struct ClientRecord {
        std::map<const unsigned char*, std::shared_ptr<T>> samples;
        std::deque<const unsigned char*> order;  // oldest first
        ClientHandler receiveHandler;
        std::uint64_t cacheSize{0};
    };
    struct ClientGroup {
        std::mutex groupMutex;  // guards clients
        std::map<unsigned long, ClientRecord> clients;
    };

    static const unsigned char* AddressOf(const std::shared_ptr<T>& sample) {
        return reinterpret_cast<const unsigned char*>(sample.get());
    }

    // Caller holds memoryMutex_.
    std::shared_ptr<ClientGroup> FindGroup(const ProlocEntityIndex& index) const {
        auto it = clientGroups_.find(index);
        return it == clientGroups_.end() ? nullptr : it->second;
    }

    // Runs f on the client under its group's mutex; an unknown index or client does nothing.
    template <typename F>
    void WithClient(const ProlocEntityIndex& index, unsigned long clientUid, F&& f) {
        std::unique_lock<std::mutex> memoryLock(memoryMutex_);
        auto group = FindGroup(index);
        if (group == nullptr) {
            return;
        }
        std::lock_guard<std::mutex> groupLock(group->groupMutex);
        memoryLock.unlock();
        auto client = group->clients.find(clientUid);
        if (client != group->clients.end()) {
            f(client->second);
        }
    }

    std::mutex memoryMutex_;  // guards clientGroups_ and fieldInitValues_
    std::map<ProlocEntityIndex, std::shared_ptr<ClientGroup>> clientGroups_;
    std::shared_ptr<ara::tessel::common::log::Log> logger_;
    std::map<ProlocEntityIndex, std::shared_ptr<T>> fieldInitValues_;
};

}  // namespace lumo::driver::proloc

#endif
