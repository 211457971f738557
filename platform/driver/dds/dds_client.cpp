#include "platform/driver/dds/dds_client.h"

#include <algorithm>
#include <random>
#include <utility>

namespace lumo::driver::dds {

using ara::core::String;
using vcc::driver::CallStatus;
using vcc::driver::MethodReply;

namespace {

constexpr std::int32_t kMethodDepth = 256;
// Keeps the deadline of a call with an endless timeout from overflowing the clock.
constexpr std::chrono::milliseconds kLongestTimeout = std::chrono::hours(24 * 365);

std::uint64_t NewClientId() {
    std::random_device device;
    std::uint64_t id = 0;
    while (id == 0) {
        id = (static_cast<std::uint64_t>(device()) << 32U) ^ device();
    }
    return id;
}

bool IsTarget(const String& userData, const String& target) {
    const auto instance = UserDataValue(userData.data(), userData.size(), "instance");
    return instance && *instance == target;
}

bool TargetAmong(const std::vector<String>& userData, const String& target) {
    return std::any_of(userData.begin(), userData.end(),
                       [&](const String& data) { return IsTarget(data, target); });
}

MethodReply FailedReply(CallStatus status, const String& reason) {
    MethodReply reply;
    reply.status = status;
    reply.reason = reason;
    return reply;
}

}  // namespace

std::shared_ptr<DdsMethodClient> DdsMethodClient::Create(
    const api::types::MethodInfo& info, std::shared_ptr<DdsParticipant> participant,
    std::shared_ptr<DdsExecutor> executor) {
    const dds_entity_t requestTopic = participant->Topic(RequestTopic(info.dds.topic));
    const dds_entity_t replyTopic = participant->Topic(ReplyTopic(info.dds.topic));
    if (requestTopic < 0 || replyTopic < 0) {
        return nullptr;
    }
    std::shared_ptr<DdsMethodClient> client(
        new DdsMethodClient(info, std::move(participant), std::move(executor)));
    const dds_entity_t pp = client->participant_->Handle();
    const EndpointQos writerQos(kMethodDepth, {});
    const EndpointQos readerQos(kMethodDepth, ClientUserData(client->clientId_));
    client->reader_ = dds_create_reader(pp, replyTopic, readerQos.Get(), nullptr);
    client->writer_ = dds_create_writer(pp, requestTopic, writerQos.Get(), nullptr);
    if (client->writer_ < 0 || client->reader_ < 0) {
        CmLog().LogError() << "DDS driver: cannot create the request writer and reply reader of \""
                           << info.dds.topic
                           << "\": " << dds_strretcode(std::min(client->writer_, client->reader_));
        return nullptr;
    }
    dds_listener_t* listener = dds_create_listener(client.get());
    dds_lset_data_available(listener, &DdsMethodClient::OnReplies);
    dds_lset_subscription_matched(listener, &DdsMethodClient::OnReplyMatch);
    dds_set_listener(client->reader_, listener);
    dds_reset_listener(listener);
    dds_lset_publication_matched(listener, &DdsMethodClient::OnRequestMatch);
    dds_set_listener(client->writer_, listener);
    dds_delete_listener(listener);
    client->PostRecheck();
    return client;
}

DdsMethodClient::DdsMethodClient(const api::types::MethodInfo& info,
                                 std::shared_ptr<DdsParticipant> participant,
                                 std::shared_ptr<DdsExecutor> executor)
    : serviceId_(info.serviceId),
      entityId_(info.entityId),
      target_(info.dds.targetInstance),
      topic_(info.dds.topic),
      refuseTag_("DdsReplyRefused:" + info.dds.topic),
      clientId_(NewClientId()),
      participant_(std::move(participant)),
      executor_(std::move(executor)) {}

DdsMethodClient::~DdsMethodClient() {
    Close();
}

void DdsMethodClient::Close() {
    std::unordered_map<std::uint64_t, PendingCall> open;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        matched_ = false;
        open.swap(pending_);
        queued_.clear();
    }
    matchedChanged_.notify_all();
    if (reader_ > 0) {
        dds_delete(reader_);
    }
    if (writer_ > 0) {
        dds_delete(writer_);
    }
    for (auto& [sequence, call] : open) {
        executor_->Cancel(call.timer);
        call.handler(FailedReply(CallStatus::kNotReachable, "the DDS client was closed"));
    }
}

void DdsMethodClient::OnReplies(dds_entity_t /*reader*/, void* arg) {
    static_cast<DdsMethodClient*>(arg)->TakeReplies();
}

void DdsMethodClient::OnRequestMatch(dds_entity_t /*writer*/,
                                     dds_publication_matched_status_t /*status*/, void* arg) {
    static_cast<DdsMethodClient*>(arg)->PostRecheck();
}

void DdsMethodClient::OnReplyMatch(dds_entity_t /*reader*/,
                                   dds_subscription_matched_status_t /*status*/, void* arg) {
    static_cast<DdsMethodClient*>(arg)->PostRecheck();
}

void DdsMethodClient::PostRecheck() {
    std::weak_ptr<DdsMethodClient> weak = weak_from_this();
    executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->RecheckMatch();
        }
    });
}

void DdsMethodClient::RecheckMatch() {
    // Both halves: a request reaches the target, and its reply reaches us.
    bool newReader = false;
    bool anyReader = false;
    for (const auto& endpoint : MatchedEndpoints(writer_, true)) {
        if (IsTarget(endpoint.userData, target_)) {
            anyReader = true;
            newReader = knownReaders_.insert(endpoint.handle).second || newReader;
        }
    }
    const bool matched = anyReader && TargetAmong(MatchedUserData(reader_, false), target_);
    std::deque<QueuedRequest> waiting;
    bool found = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return;
        }
        // A request reader of the target never seen before is a daemon that (re)started, even
        // while the lease of the old one has not yet run out.
        pendingFound_ = pendingFound_ || newReader;
        found = matched && pendingFound_;
        if (found) {
            pendingFound_ = false;
            foundTold_ = true;
        }
        matched_ = matched;
        if (matched) {
            waiting.swap(queued_);
            for (const auto& request : waiting) {
                auto it = pending_.find(request.sequence);
                if (it != pending_.end()) {
                    it->second.sent = true;
                }
            }
        }
    }
    matchedChanged_.notify_all();
    for (const auto& request : waiting) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (pending_.count(request.sequence) == 0) {
                continue;  // timed out meanwhile
            }
        }
        const dds_return_t rc =
            Write(request.sequence, request.payload.data(), request.payload.size(), 0);
        if (rc < 0) {
            Complete(request.sequence, FailedReply(CallStatus::kRefused,
                                                   String("the request could not be written: ") +
                                                       dds_strretcode(rc)));
        }
    }
    // A reply that came while nobody listened yet, at creation.
    TakeReplies();
    if (found) {
        found_->Notify();
    }
}

void DdsMethodClient::SetServiceFoundHandler(std::function<void()> handler) {
    const bool watch = static_cast<bool>(handler);
    found_->Set(std::move(handler));
    if (!watch) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        foundTold_ = false;
    }
    std::weak_ptr<DdsMethodClient> weak = weak_from_this();
    executor_->Post([weak] {
        auto self = weak.lock();
        if (self == nullptr) {
            return;
        }
        bool tell = false;
        {
            // Unless a match since the handler was set has told it already.
            std::lock_guard<std::mutex> lock(self->mutex_);
            tell = self->matched_ && !self->foundTold_;
            self->foundTold_ = self->foundTold_ || tell;
        }
        if (tell) {
            self->found_->Notify();
        }
    });
}

void DdsMethodClient::Call(const unsigned char* payload, std::uint64_t size,
                           std::chrono::milliseconds timeout, vcc::driver::ReplyHandler handler) {
    if (!handler) {
        return;
    }
    const std::uint64_t sequence = nextSequence_++;
    bool sendNow = false;
    CallStatus failure = CallStatus::kOk;
    String reason;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            failure = CallStatus::kNotReachable;
            reason = "the DDS client was closed";
        } else if (size > kMaxPayloadSize) {
            failure = CallStatus::kRefused;
            reason = "the request is larger than " + std::to_string(kMaxPayloadSize) + " bytes";
        } else if (size > 0 && payload == nullptr) {
            failure = CallStatus::kRefused;
            reason = "the request has a size but no bytes";
        } else if (matched_ && queued_.empty()) {
            sendNow = true;
        } else if (queued_.size() >= kMaxQueued) {
            failure = CallStatus::kRefused;
            reason = "too many calls wait for the service";
        } else {
            queued_.push_back(
                QueuedRequest{sequence, std::vector<unsigned char>(payload, payload + size)});
        }
        pending_.emplace(sequence, PendingCall{std::move(handler), 0, sendNow});
    }
    if (failure != CallStatus::kOk) {
        CompleteLater(sequence, failure, reason);
        return;
    }
    std::weak_ptr<DdsMethodClient> weak = weak_from_this();
    const DdsExecutor::TimerId timer = executor_->Schedule(
        std::chrono::steady_clock::now() + std::min(timeout, kLongestTimeout), [weak, sequence] {
            if (auto self = weak.lock()) {
                self->Expire(sequence);
            }
        });
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pending_.find(sequence);
        if (it != pending_.end()) {
            it->second.timer = timer;
        } else {
            executor_->Cancel(timer);  // answered already
        }
    }
    if (sendNow) {
        const dds_return_t rc = Write(sequence, payload, size, 0);
        if (rc < 0) {
            CompleteLater(sequence, CallStatus::kRefused,
                          String("the request could not be written: ") + dds_strretcode(rc));
        }
    }
}

bool DdsMethodClient::CallNoReturn(const unsigned char* payload, std::uint64_t size) {
    if (size > kMaxPayloadSize || (size > 0 && payload == nullptr)) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_ || !matched_) {
            return false;
        }
    }
    return Write(nextSequence_++, payload, size, kFlagNoReturn) >= 0;
}

bool DdsMethodClient::WaitForService(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    matchedChanged_.wait_for(lock, timeout, [this] { return matched_ || closed_; });
    return matched_;
}

dds_return_t DdsMethodClient::Write(std::uint64_t sequence, const unsigned char* payload,
                                    std::uint64_t size, std::uint32_t flags) {
    Envelope envelope{};
    SetInstance(envelope, target_);
    envelope.serviceId = serviceId_;
    envelope.entityId = entityId_;
    envelope.uuidHigh = clientId_;
    envelope.uuidLow = sequence;
    envelope.flags = flags;
    // Cyclone only reads the payload while it serializes the sample.
    envelope.payload._buffer =
        const_cast<unsigned char*>(payload);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    envelope.payload._length = static_cast<std::uint32_t>(size);
    envelope.payload._maximum = static_cast<std::uint32_t>(size);
    envelope.payload._release = false;
    return dds_write(writer_, &envelope);
}

void DdsMethodClient::Expire(std::uint64_t sequence) {
    bool sent = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pending_.find(sequence);
        if (it == pending_.end()) {
            return;
        }
        sent = it->second.sent;
    }
    if (sent) {
        Complete(sequence, FailedReply(CallStatus::kTimeout, "no reply from daemon instance \"" +
                                                                 target_ + "\" on \"" + topic_ +
                                                                 "\" within the timeout"));
    } else {
        Complete(sequence,
                 FailedReply(CallStatus::kNotReachable,
                             "no daemon instance \"" + target_ + "\" serves \"" + topic_ +
                                 "\" on DDS domain " + std::to_string(participant_->DomainId())));
    }
}

bool DdsMethodClient::Complete(std::uint64_t sequence, const MethodReply& reply) {
    vcc::driver::ReplyHandler handler;
    DdsExecutor::TimerId timer = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pending_.find(sequence);
        if (it == pending_.end()) {
            return false;
        }
        handler = std::move(it->second.handler);
        timer = it->second.timer;
        const bool wasQueued = !it->second.sent;
        pending_.erase(it);
        if (wasQueued) {
            queued_.erase(std::remove_if(queued_.begin(), queued_.end(),
                                         [sequence](const QueuedRequest& request) {
                                             return request.sequence == sequence;
                                         }),
                          queued_.end());
        }
    }
    executor_->Cancel(timer);
    handler(reply);
    return true;
}

void DdsMethodClient::CompleteLater(std::uint64_t sequence, CallStatus status,
                                    const String& reason) {
    std::weak_ptr<DdsMethodClient> weak = weak_from_this();
    executor_->Post([weak, sequence, status, reason] {
        if (auto self = weak.lock()) {
            self->Complete(sequence, FailedReply(status, reason));
        }
    });
}

void DdsMethodClient::TakeReplies() {
    TakeEnvelopes(reader_, [this](const Envelope& envelope) { Receive(envelope); });
}

void DdsMethodClient::Receive(const Envelope& envelope) {
    // Every client of the method reads every reply; those of other clients are not ours.
    if (envelope.uuidHigh != clientId_) {
        return;
    }
    const char* fault = nullptr;
    if (!InstanceIs(envelope, target_)) {
        fault = "sent by another daemon instance";
    } else if (const EnvelopeFault check = CheckEnvelope(envelope, serviceId_, entityId_, false);
               check != EnvelopeFault::kNone) {
        fault = EnvelopeFaultText(check);
    } else {
        MethodReply reply;
        reply.status =
            (envelope.flags & kFlagNotOffered) != 0 ? CallStatus::kNotReachable : CallStatus::kOk;
        reply.isErrorReply = (envelope.flags & kFlagErrorReply) != 0;
        reply.serializeType = 0;
        reply.payload = envelope.payload._buffer;
        reply.size = envelope.payload._length;
        if (reply.status == CallStatus::kNotReachable) {
            reply.reason = "daemon instance \"" + target_ + "\" does not offer \"" + topic_ + "\"";
        }
        if (Complete(envelope.uuidLow, reply)) {
            return;
        }
        fault = "its uuid matches no open call";
    }
    CmLog().LogWarn(refuseTag_, kPeerLimit)
        << "DDS driver: refused a reply on \"" << topic_ << "\": " << fault << " (sequence "
        << envelope.uuidLow << ", service " << envelope.serviceId << ", entity "
        << envelope.entityId << ", flags " << envelope.flags << ")";
}

std::shared_ptr<DdsEventClient> DdsEventClient::Create(const api::types::EventInfo& info,
                                                       std::shared_ptr<DdsParticipant> participant,
                                                       std::shared_ptr<DdsExecutor> executor) {
    if (participant->Topic(info.dds.topic) < 0) {
        return nullptr;
    }
    return std::shared_ptr<DdsEventClient>(
        new DdsEventClient(info, std::move(participant), std::move(executor)));
}

DdsEventClient::DdsEventClient(const api::types::EventInfo& info,
                               std::shared_ptr<DdsParticipant> participant,
                               std::shared_ptr<DdsExecutor> executor)
    : serviceId_(info.serviceId),
      entityId_(info.entityId),
      target_(info.dds.targetInstance),
      topic_(info.dds.topic),
      participant_(std::move(participant)),
      executor_(std::move(executor)) {}

DdsEventClient::~DdsEventClient() {
    Unsubscribe();
}

bool DdsEventClient::Subscribe(vcc::driver::SampleHandler handler) {
    if (!handler) {
        return false;
    }
    const std::lock_guard<std::mutex> subscribing(subscribeMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handler_ = std::make_shared<const vcc::driver::SampleHandler>(std::move(handler));
        if (reader_ > 0) {
            return true;
        }
    }
    const dds_entity_t topic = participant_->Topic(topic_);
    const EndpointQos qos(kDepth, {});
    const dds_entity_t reader =
        topic < 0 ? topic : dds_create_reader(participant_->Handle(), topic, qos.Get(), nullptr);
    if (reader < 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        handler_.reset();
        CmLog().LogError() << "DDS driver: cannot create the reader of \"" << topic_
                           << "\": " << dds_strretcode(reader);
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        reader_ = reader;
    }
    dds_listener_t* listener = dds_create_listener(this);
    dds_lset_data_available(listener, &DdsEventClient::OnSamples);
    dds_lset_subscription_matched(listener, &DdsEventClient::OnMatch);
    dds_set_listener(reader, listener);
    dds_delete_listener(listener);
    std::weak_ptr<DdsEventClient> weak = weak_from_this();
    executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->RecheckMatch();
        }
    });
    return true;
}

void DdsEventClient::Unsubscribe() {
    const std::lock_guard<std::mutex> subscribing(subscribeMutex_);
    dds_entity_t reader = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        reader = reader_;
        reader_ = 0;
        handler_.reset();
        subscribed_ = false;
    }
    // Deleting waits for a listener that runs; none starts afterwards.
    if (reader > 0) {
        dds_delete(reader);
    }
}

void DdsEventClient::OnSamples(dds_entity_t reader, void* arg) {
    static_cast<DdsEventClient*>(arg)->TakeSamples(reader);
}

void DdsEventClient::OnMatch(dds_entity_t /*reader*/, dds_subscription_matched_status_t /*status*/,
                             void* arg) {
    std::weak_ptr<DdsEventClient> weak = static_cast<DdsEventClient*>(arg)->weak_from_this();
    static_cast<DdsEventClient*>(arg)->executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->RecheckMatch();
        }
    });
}

void DdsEventClient::TakeSamples(dds_entity_t reader) {
    std::shared_ptr<const vcc::driver::SampleHandler> handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handler = handler_;
    }
    TakeEnvelopes(reader, [&](const Envelope& envelope) {
        if (!InstanceIs(envelope, target_)) {
            return;  // another daemon's event
        }
        const EnvelopeFault fault = CheckEnvelope(envelope, serviceId_, entityId_, false);
        if (fault != EnvelopeFault::kNone) {
            CmLog().LogWarn("DdsEventRefused:" + topic_, kPeerLimit)
                << "DDS driver: refused an event on \"" << topic_
                << "\": " << EnvelopeFaultText(fault) << " (service " << envelope.serviceId
                << ", entity " << envelope.entityId << ", flags " << envelope.flags << ")";
            return;
        }
        if (handler != nullptr) {
            (*handler)(envelope.payload._buffer, envelope.payload._length);
        }
    });
}

void DdsEventClient::RecheckMatch() {
    dds_entity_t reader = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        reader = reader_;
    }
    const bool matched = reader > 0 && TargetAmong(MatchedUserData(reader, false), target_);
    std::lock_guard<std::mutex> lock(mutex_);
    if (reader_ == reader) {  // not unsubscribed meanwhile
        subscribed_ = matched;
    }
}

}  // namespace lumo::driver::dds
