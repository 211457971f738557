#ifndef BINDING_PROLOC_PROLOC_METHOD_MEMORY_H
#define BINDING_PROLOC_PROLOC_METHOD_MEMORY_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <type_traits>

#include "platform/core/future.h"
#include "platform/core/result.h"
#include "platform/driver/proloc/proloc_memory_manager.h"
#include "platform/driver/proloc/spare_nodes.h"
#include "platform/error/future_error_domain.h"
#include "platform/log/log.h"
#include "platform/vcc/api/types/method_msg.h"

namespace lumo::driver::proloc {

namespace detail {

// Records by entity and address. The address of the shared record is the loan key that travels
// in MethodMsg.payload; the entry stays until ReturnLoan.
template <typename Record>
class ProlocRecordStore : public ProlocMethodManager {
public:
    void ReturnLoan(const unsigned char* address, const ProlocEntityIndex& index) override {
        bool indexFound = false;
        std::shared_ptr<Record> record;  // freed after the lock
        {
            std::lock_guard<std::mutex> lock(mutex_);
            record = TakeLocked(index, address, indexFound);
        }
        if (!indexFound) {
            logger_->LogWarn() << returnNoIndex_ << index.GetProlocInfo() << "]";
        } else if (record == nullptr) {
            logger_->LogWarn() << returnNoAddress_ << index.GetProlocInfo() << "]";
        }
    }

    void UnRegisterMethod(const ProlocEntityIndex& index) override {
        std::lock_guard<std::mutex> lock(mutex_);
        last_ = entries_.end();
        if (entries_.erase(index) != 0) {
            logger_->LogDebug() << "Proloc unregister method server index ["
                                << index.GetProlocInfo() << "]";
        }
    }

    // Records held for an entity (tests, statistics).
    std::size_t Count(const ProlocEntityIndex& index) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto entity = entries_.find(index);
        return entity == entries_.end() ? 0 : entity->second.size();
    }

protected:
    ProlocRecordStore(const char* returnNoIndex, const char* returnNoAddress)
        : logger_(ara::tessel::common::log::Log::GetLog("CM")),
          returnNoIndex_(returnNoIndex),
          returnNoAddress_(returnNoAddress) {}

    static std::uint64_t Key(const unsigned char* address) {
        return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(address));
    }

    // Caller holds mutex_.
    const unsigned char* Insert(const ProlocEntityIndex& index, std::shared_ptr<Record> record) {
        const auto* address = reinterpret_cast<const unsigned char*>(record.get());
        auto entity = FindLocked(index);
        if (entity == entries_.end()) {
            entity = last_ = entries_.emplace(index, Records{}).first;
        }
        (void)spares_.Insert(entity->second, Key(address), std::move(record));
        return address;
    }

    // Caller holds mutex_. Removes the record and hands it over; null when the index or the
    // address is not there.
    std::shared_ptr<Record> TakeLocked(const ProlocEntityIndex& index, const unsigned char* address,
                                       bool& indexFound) {
        auto entity = FindLocked(index);
        indexFound = entity != entries_.end();
        if (!indexFound) {
            return nullptr;
        }
        auto found = entity->second.find(Key(address));
        if (found == entity->second.end()) {
            return nullptr;
        }
        return spares_.Take(entity->second, found);
    }

    using Records = std::map<std::uint64_t, std::shared_ptr<Record>>;
    using Entries = std::map<ProlocEntityIndex, Records>;

    // Caller holds mutex_. A store mostly serves one entity at a time: the one found last is
    // compared first, which is cheaper than a walk of the tree with its string keys.
    typename Entries::iterator FindLocked(const ProlocEntityIndex& index) {
        if (last_ != entries_.end() && last_->first == index) {
            return last_;
        }
        auto found = entries_.find(index);
        if (found != entries_.end()) {
            last_ = found;
        }
        return found;
    }

    mutable std::mutex mutex_;  // guards entries_, last_ and spares_
    Entries entries_;
    typename Entries::iterator last_{entries_.end()};
    SpareNodes<Records> spares_;
    std::shared_ptr<ara::tessel::common::log::Log> logger_;

private:
    const char* returnNoIndex_;
    const char* returnNoAddress_;
};

}  // namespace detail

// The in-process request store of one argument list. The client adds the arguments; the
// server's request wrapper copies them out; the server returns the loan when the user method
// has taken them.
template <typename... Args>
class ProlocRequestMemory final
    : public detail::ProlocRecordStore<std::tuple<std::decay_t<Args>...>> {
    using Base = detail::ProlocRecordStore<std::tuple<std::decay_t<Args>...>>;

public:
    using Record = std::tuple<std::decay_t<Args>...>;

    ProlocRequestMemory()
        : Base("Proloc request return loan cannot find index [",
               "Proloc request return loan unknon address[") {}

    // Client side: stores the arguments and returns their loan key.
    const unsigned char* AddRequest(const ProlocEntityIndex& index, const Args&... args) {
        auto record = std::make_shared<Record>(args...);
        std::lock_guard<std::mutex> lock(this->mutex_);
        return this->Insert(index, std::move(record));
    }

    // Server side: the arguments, unchanged until their loan is returned, so that they need no
    // copy; defaults when they are not there.
    std::shared_ptr<const Record> GetRequest(const ProlocEntityIndex& index,
                                             const unsigned char* address) {
        std::lock_guard<std::mutex> lock(this->mutex_);
        auto entity = this->FindLocked(index);
        if (entity == this->entries_.end()) {
            this->logger_->LogWarn()
                << "Proloc get request value cannot find index [" << index.GetProlocInfo() << "]";
            return Defaults();
        }
        auto record = entity->second.find(Base::Key(address));
        if (record == entity->second.end()) {
            this->logger_->LogWarn()
                << "Proloc get unknow request value [" << index.GetProlocInfo() << "]";
            return Defaults();
        }
        return record->second;
    }

private:
    static std::shared_ptr<const Record> Defaults() {
        static const auto defaults = std::make_shared<const Record>();
        return defaults;
    }
};

// The in-process reply store of one result type.
template <typename Output>
class ProlocReplyMemory final
    : public detail::ProlocRecordStore<ara::core::Result<Output, ara::core::ErrorCode>> {
    using Base = detail::ProlocRecordStore<ara::core::Result<Output, ara::core::ErrorCode>>;

public:
    using Record = ara::core::Result<Output, ara::core::ErrorCode>;

    ProlocReplyMemory()
        : Base("Proloc reply return loan cannot find index [",
               "Proloc reply return loan unknon address[") {}

    // Server side: stores the result and returns its key. An error of the Future domain is a
    // misuse of the promise and is thrown, not sent.
    const unsigned char* AddReply(const Record& result, const ProlocEntityIndex& index,
                                  vcc::api::types::MethodMsg& msg) {
        if (!result.HasValue() &&
            result.Error().Domain().Id() == ara::core::GetFutureErrorDomain().Id()) {
            throw ara::core::FutureException(result.Error());
        }
        msg.isErrorReply = !result.HasValue();
        auto record = std::make_shared<Record>(result);
        std::lock_guard<std::mutex> lock(this->mutex_);
        return this->Insert(index, std::move(record));
    }

    // Client side: the result, moved out, with its loan returned in the same step; nullopt when
    // it is not there.
    std::optional<Record> TakeReply(const ProlocEntityIndex& index, const unsigned char* address) {
        bool indexFound = false;
        std::shared_ptr<Record> record;
        {
            std::lock_guard<std::mutex> lock(this->mutex_);
            record = this->TakeLocked(index, address, indexFound);
        }
        return record == nullptr ? std::nullopt : std::optional<Record>(std::move(*record));
    }
};

}  // namespace lumo::driver::proloc

#endif
