#ifndef PLATFORM_DRIVER_DDS_DDS_CLIENT_H
#define PLATFORM_DRIVER_DDS_DDS_CLIENT_H

// The client side of the DDS driver: a request writer and a reply reader per method, a reader per
// event, all on the client's participant and all aimed at one daemon instance
// (info.dds.targetInstance).
//
// Locks: mutex_ of each class is never held while Cyclone or a user handler is called (a
// listener may hold Cyclone's locks when it takes mutex_).

#include <dds/dds.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/driver/dds/dds_envelope.h"
#include "platform/driver/dds/dds_executor.h"
#include "platform/driver/dds/dds_participant.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::driver::dds {

namespace api = lumo::vcc::api;

class DdsMethodClient final : public vcc::driver::MethodClient,
                              public std::enable_shared_from_this<DdsMethodClient> {
public:
    // Calls that wait for the service to be found, at most.
    static constexpr std::size_t kMaxQueued = 1024;

    // Creates the request writer and the reply reader of info.dds.topic. Null, with a log
    // line, on failure.
    static std::shared_ptr<DdsMethodClient> Create(const api::types::MethodInfo& info,
                                                   std::shared_ptr<DdsParticipant> participant,
                                                   std::shared_ptr<DdsExecutor> executor);
    ~DdsMethodClient() override;

    // Until the target daemon's request reader and reply writer are matched, the request waits
    // (within its timeout) and is sent when they are.
    void Call(const unsigned char* payload, std::uint64_t size, std::chrono::milliseconds timeout,
              vcc::driver::ReplyHandler handler) override;
    // False while the target daemon is not matched.
    bool CallNoReturn(const unsigned char* payload, std::uint64_t size) override;
    bool WaitForService(std::chrono::milliseconds timeout) override;
    void SetServiceFoundHandler(std::function<void()> handler) override;
    std::uint8_t GetSerializeType() const override { return 0; }

    // The high word of this client's uuids.
    std::uint64_t ClientId() const { return clientId_; }
    // Deletes the writer and the reader; calls still open end with kNotReachable on the calling
    // thread. Idempotent.
    void Close();

private:
    struct PendingCall {
        vcc::driver::ReplyHandler handler;
        DdsExecutor::TimerId timer{0};
        bool sent{false};
    };
    struct QueuedRequest {
        std::uint64_t sequence{0};
        std::vector<unsigned char> payload;
    };

    DdsMethodClient(const api::types::MethodInfo& info, std::shared_ptr<DdsParticipant> participant,
                    std::shared_ptr<DdsExecutor> executor);

    static void OnReplies(dds_entity_t reader, void* arg);
    static void OnRequestMatch(dds_entity_t writer, dds_publication_matched_status_t status,
                               void* arg);
    static void OnReplyMatch(dds_entity_t reader, dds_subscription_matched_status_t status,
                             void* arg);
    void PostRecheck();
    // Driver thread: whether the target daemon is matched on both topics; sends what waited.
    void RecheckMatch();
    void TakeReplies();
    void Receive(const Envelope& envelope);
    void Expire(std::uint64_t sequence);
    // Ends a call: false when no such call is open.
    bool Complete(std::uint64_t sequence, const vcc::driver::MethodReply& reply);
    void CompleteLater(std::uint64_t sequence, vcc::driver::CallStatus status,
                       const ara::core::String& reason);
    dds_return_t Write(std::uint64_t sequence, const unsigned char* payload, std::uint64_t size,
                       std::uint32_t flags);

    const std::uint16_t serviceId_;
    const std::uint32_t entityId_;
    const ara::core::String target_;
    const ara::core::String topic_;
    const ara::core::String refuseTag_;
    const std::uint64_t clientId_;
    const std::shared_ptr<DdsParticipant> participant_;
    const std::shared_ptr<DdsExecutor> executor_;
    dds_entity_t writer_{0};
    dds_entity_t reader_{0};
    std::atomic<std::uint64_t> nextSequence_{1};
    // Driver thread only: the target's request readers seen so far, one per daemon run.
    std::set<dds_instance_handle_t> knownReaders_;
    const std::shared_ptr<vcc::driver::ServiceFoundSignal> found_ =
        std::make_shared<vcc::driver::ServiceFoundSignal>();

    std::mutex mutex_;  // guards every member below
    std::condition_variable matchedChanged_;
    bool matched_{false};
    bool pendingFound_{false};  // a new daemon matched on the request topic, not yet told
    bool foundTold_{false};     // the found handler has heard of the match since it was set
    bool closed_{false};
    std::unordered_map<std::uint64_t, PendingCall> pending_;
    std::deque<QueuedRequest> queued_;
};

class DdsEventClient final : public vcc::driver::EventClient,
                             public std::enable_shared_from_this<DdsEventClient> {
public:
    static constexpr std::int32_t kDepth = 16;

    static std::shared_ptr<DdsEventClient> Create(const api::types::EventInfo& info,
                                                  std::shared_ptr<DdsParticipant> participant,
                                                  std::shared_ptr<DdsExecutor> executor);
    ~DdsEventClient() override;

    // Creates the reader on the first call; samples of other daemons are not delivered.
    bool Subscribe(vcc::driver::SampleHandler handler) override;
    // Deletes the reader.
    void Unsubscribe() override;
    // True while a writer of the target daemon is matched.
    bool IsSubscribed() const override { return subscribed_; }
    std::uint8_t GetSerializeType() const override { return 0; }

private:
    DdsEventClient(const api::types::EventInfo& info, std::shared_ptr<DdsParticipant> participant,
                   std::shared_ptr<DdsExecutor> executor);

    static void OnSamples(dds_entity_t reader, void* arg);
    static void OnMatch(dds_entity_t reader, dds_subscription_matched_status_t status, void* arg);
    void TakeSamples(dds_entity_t reader);
    void RecheckMatch();

    const std::uint16_t serviceId_;
    const std::uint32_t entityId_;
    const ara::core::String target_;
    const ara::core::String topic_;
    const std::shared_ptr<DdsParticipant> participant_;
    const std::shared_ptr<DdsExecutor> executor_;
    std::atomic<bool> subscribed_{false};

    // Serializes Subscribe and Unsubscribe, which call Cyclone with it held; listeners never
    // take it. Taken before mutex_.
    std::mutex subscribeMutex_;
    mutable std::mutex mutex_;  // guards reader_ and handler_; never held while calling Cyclone
    dds_entity_t reader_{0};
    std::shared_ptr<const vcc::driver::SampleHandler> handler_;
};

}  // namespace lumo::driver::dds

#endif
