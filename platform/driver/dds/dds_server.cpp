#include "platform/driver/dds/dds_server.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sstream>
#include <utility>
#include <vector>

namespace lumo::driver::dds {

using api::types::DriverType;
using api::types::MethodMsg;
using ara::core::String;

namespace {

constexpr std::int32_t kMethodDepth = 256;

// Request payloads and reply buffers: plain arrays, so that ReturnLoan and the reply path free
// them without a lookup.
unsigned char* NewPayload(std::uint64_t size) {
    return new (std::nothrow) unsigned char[std::max<std::uint64_t>(size, 1)]();
}

// A zeroed buffer for a reply or an event, or null with a line when size is beyond the bound.
unsigned char* AllocateFor(const String& topic, std::uint64_t size) {
    if (size > kMaxPayloadSize) {
        CmLog().LogError() << "DDS driver: no buffer of " << size << " bytes on \"" << topic
                           << "\": more than " << kMaxPayloadSize;
        return nullptr;
    }
    return NewPayload(size);
}

// Fills an envelope whose payload points at the caller's bytes (not copied, not freed).
void FillEnvelope(Envelope& envelope, const String& instance, std::uint16_t serviceId,
                  std::uint32_t entityId, std::uint32_t flags, unsigned char* payload,
                  std::uint64_t size) {
    SetInstance(envelope, instance);
    envelope.serviceId = serviceId;
    envelope.entityId = entityId;
    envelope.flags = flags;
    envelope.payload._buffer = payload;
    envelope.payload._length = static_cast<std::uint32_t>(size);
    envelope.payload._maximum = static_cast<std::uint32_t>(size);
    envelope.payload._release = false;
}

}  // namespace

std::shared_ptr<DdsMethodHandler> DdsMethodHandler::Create(
    const api::types::MethodInfo& info, const String& instance,
    std::shared_ptr<DdsParticipant> participant, std::shared_ptr<DdsExecutor> executor) {
    const dds_entity_t requestTopic = participant->Topic(RequestTopic(info.dds.topic));
    const dds_entity_t replyTopic = participant->Topic(ReplyTopic(info.dds.topic));
    if (requestTopic < 0 || replyTopic < 0) {
        return nullptr;
    }
    std::shared_ptr<DdsMethodHandler> handler(
        new DdsMethodHandler(info, instance, std::move(participant), std::move(executor)));
    const EndpointQos qos(kMethodDepth, EndpointUserData(instance));
    const dds_entity_t pp = handler->participant_->Handle();
    handler->writer_ = dds_create_writer(pp, replyTopic, qos.Get(), nullptr);
    handler->reader_ = dds_create_reader(pp, requestTopic, qos.Get(), nullptr);
    if (handler->writer_ < 0 || handler->reader_ < 0) {
        CmLog().LogError() << "DDS driver: cannot create the request reader and reply writer of \""
                           << info.dds.topic << "\": "
                           << dds_strretcode(std::min(handler->writer_, handler->reader_));
        return nullptr;
    }
    // Listeners go on once the handles are stored; what happened before is caught up with below.
    dds_listener_t* listener = dds_create_listener(handler.get());
    dds_lset_data_available(listener, &DdsMethodHandler::OnRequests);
    dds_set_listener(handler->reader_, listener);
    dds_reset_listener(listener);
    dds_lset_publication_matched(listener, &DdsMethodHandler::OnReplyMatch);
    dds_set_listener(handler->writer_, listener);
    dds_delete_listener(listener);
    std::weak_ptr<DdsMethodHandler> weak = handler;
    handler->executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->RescanClients();
            self->TakeRequests();
        }
    });
    return handler;
}

DdsMethodHandler::DdsMethodHandler(const api::types::MethodInfo& info, String instance,
                                   std::shared_ptr<DdsParticipant> participant,
                                   std::shared_ptr<DdsExecutor> executor)
    : serviceId_(info.serviceId),
      entityId_(info.entityId),
      serviceInstance_(info.instanceId),
      instance_(std::move(instance)),
      topic_(info.dds.topic),
      refuseTag_("DdsRequestRefused:" + info.dds.topic),
      participant_(std::move(participant)),
      executor_(std::move(executor)) {}

DdsMethodHandler::~DdsMethodHandler() {
    Close();
}

void DdsMethodHandler::Close() {
    std::deque<Parked> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        dropped.swap(parked_);
        parkedPerClient_.clear();
    }
    // Deleting waits for a listener that runs; none starts afterwards.
    if (reader_ > 0) {
        dds_delete(reader_);
    }
    if (writer_ > 0) {
        dds_delete(writer_);
    }
    for (const auto& entry : dropped) {
        ReturnLoan(entry.msg->payload);
    }
    std::lock_guard<std::mutex> lock(handlerMutex_);
    handler_.reset();
}

void DdsMethodHandler::OnRequests(dds_entity_t /*reader*/, void* arg) {
    static_cast<DdsMethodHandler*>(arg)->TakeRequests();
}

void DdsMethodHandler::OnReplyMatch(dds_entity_t /*writer*/,
                                    dds_publication_matched_status_t /*status*/, void* arg) {
    // Reading the matched readers' user data is left to the driver thread.
    std::weak_ptr<DdsMethodHandler> weak = static_cast<DdsMethodHandler*>(arg)->weak_from_this();
    static_cast<DdsMethodHandler*>(arg)->executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->RescanClients();
        }
    });
}

void DdsMethodHandler::TakeRequests() {
    TakeEnvelopes(reader_, [this](const Envelope& envelope) { Receive(envelope); });
}

void DdsMethodHandler::Refuse(const Envelope& envelope, EnvelopeFault fault) {
    ++refused_;
    CmLog().LogWarn(refuseTag_, kPeerLimit)
        << "DDS driver: refused a request on \"" << topic_ << "\": " << EnvelopeFaultText(fault)
        << " (service " << envelope.serviceId << ", entity " << envelope.entityId << ", flags "
        << envelope.flags << ", " << envelope.payload._length << " payload bytes)";
}

void DdsMethodHandler::Receive(const Envelope& envelope) {
    // Every daemon on the domain reads every request; answering is for the one it names.
    if (!InstanceIs(envelope, instance_)) {
        ++otherInstance_;
        return;
    }
    const EnvelopeFault fault = CheckEnvelope(envelope, serviceId_, entityId_, true);
    if (fault != EnvelopeFault::kNone) {
        Refuse(envelope, fault);
        return;
    }
    const std::uint64_t size = envelope.payload._length;
    unsigned char* payload = NewPayload(size);
    if (payload == nullptr) {
        ++dropped_;
        CmLog().LogError(refuseTag_, kPeerLimit) << "DDS driver: no memory for a request of "
                                                 << size << " bytes on \"" << topic_ << "\"";
        return;
    }
    if (size > 0) {
        std::memcpy(payload, envelope.payload._buffer, size);
    }
    auto msg = std::make_shared<MethodMsg>();
    msg->payload = payload;
    msg->size = size;
    msg->driverType = DriverType::kDds;
    msg->serializeType = 0;
    msg->uuid.high = envelope.uuidHigh;
    msg->uuid.low = envelope.uuidLow;
    auto route = std::make_shared<DdsReplyRoute>();
    route->uuid = msg->uuid;
    route->noReturn = (envelope.flags & kFlagNoReturn) != 0;
    msg->replyRoute = std::move(route);
    Accept(msg);
}

void DdsMethodHandler::Accept(const MethodMsgPtr& msg) {
    const auto* route = static_cast<const DdsReplyRoute*>(msg->replyRoute.get());
    bool dispatch = false;
    bool notOffered = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            ReturnLoan(msg->payload);
            return;
        }
        const std::uint64_t client = msg->uuid.high;
        const bool replyPathKnown =
            route->noReturn || (clients_.count(client) != 0 && parkedPerClient_.count(client) == 0);
        if (offer_ == OfferState::kWithdrawn) {
            notOffered = true;
        } else if (offer_ == OfferState::kOffered && replyPathKnown) {
            dispatch = true;
        } else {
            ParkLocked(msg);
        }
    }
    if (dispatch) {
        Dispatch(msg);
    } else if (notOffered) {
        SendReply(nullptr, 0, msg, kFlagNotOffered);
        ReturnLoan(msg->payload);
    }
}

void DdsMethodHandler::ParkLocked(const MethodMsgPtr& msg) {
    ++parkedCount_;
    if (parked_.size() >= kMaxParked) {
        Parked oldest = std::move(parked_.front());
        parked_.pop_front();
        if (--parkedPerClient_[oldest.msg->uuid.high] == 0) {
            parkedPerClient_.erase(oldest.msg->uuid.high);
        }
        ReturnLoan(oldest.msg->payload);
        ++dropped_;
        CmLog().LogWarn("DdsParkedDropped:" + topic_, kPeerLimit)
            << "DDS driver: dropped the oldest of " << kMaxParked << " requests waiting on \""
            << topic_ << "\"";
    }
    parked_.push_back(Parked{msg, std::chrono::steady_clock::now()});
    ++parkedPerClient_[msg->uuid.high];
    if (!sweepScheduled_) {
        sweepScheduled_ = true;
        std::weak_ptr<DdsMethodHandler> weak = weak_from_this();
        executor_->Schedule(std::chrono::steady_clock::now() + kParkTime, [weak] {
            if (auto self = weak.lock()) {
                self->SweepParked();
            }
        });
    }
}

namespace {
// The handler whose receive handler this thread is calling, so that a receive handler that
// replaces itself does not wait for its own end.
thread_local const DdsMethodHandler* callingHandler = nullptr;
}  // namespace

void DdsMethodHandler::Dispatch(const MethodMsgPtr& msg) {
    std::shared_ptr<const vcc::driver::ReceiveHandler> handler;
    {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        handler = handler_;
        running_ += handler != nullptr ? 1 : 0;
    }
    if (handler == nullptr) {
        ++dropped_;
        ReturnLoan(msg->payload);
        CmLog().LogWarn("DdsNoHandler:" + topic_, kPeerLimit)
            << "DDS driver: a request on \"" << topic_ << "\" has no handler; dropped";
        return;
    }
    ++received_;
    const DdsMethodHandler* outer = callingHandler;
    callingHandler = this;
    (*handler)(msg);
    callingHandler = outer;
    handler.reset();  // the handler's captures go before SetReceiveHandler can return
    {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        --running_;
    }
    handlerIdle_.notify_all();
}

void DdsMethodHandler::RescanClients() {
    std::unordered_set<std::uint64_t> clients;
    for (const String& userData : MatchedUserData(writer_, true)) {
        const auto value = UserDataValue(userData.data(), userData.size(), "client");
        const auto id = value ? ParseClientId(*value) : std::nullopt;
        if (id) {
            clients.insert(*id);
        }
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        clients_.swap(clients);
    }
    FlushParked();
}

void DdsMethodHandler::FlushParked() {
    std::vector<MethodMsgPtr> ready;
    bool withdrawn = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_ || offer_ == OfferState::kNotYet) {
            return;
        }
        withdrawn = offer_ == OfferState::kWithdrawn;
        // In arrival order; a client's later requests stay behind its earlier ones.
        std::deque<Parked> waiting;
        for (auto& entry : parked_) {
            const std::uint64_t client = entry.msg->uuid.high;
            const auto* route = static_cast<const DdsReplyRoute*>(entry.msg->replyRoute.get());
            if (withdrawn || route->noReturn || clients_.count(client) != 0) {
                if (--parkedPerClient_[client] == 0) {
                    parkedPerClient_.erase(client);
                }
                ready.push_back(std::move(entry.msg));
            } else {
                waiting.push_back(std::move(entry));
            }
        }
        parked_.swap(waiting);
    }
    for (const auto& msg : ready) {
        if (withdrawn) {
            SendReply(nullptr, 0, msg, kFlagNotOffered);
            ReturnLoan(msg->payload);
        } else {
            Dispatch(msg);
        }
    }
}

void DdsMethodHandler::SweepParked() {
    std::size_t expired = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto limit = std::chrono::steady_clock::now() - kParkTime;
        while (!parked_.empty() && parked_.front().arrival <= limit) {
            const Parked& oldest = parked_.front();
            if (--parkedPerClient_[oldest.msg->uuid.high] == 0) {
                parkedPerClient_.erase(oldest.msg->uuid.high);
            }
            ReturnLoan(oldest.msg->payload);
            parked_.pop_front();
            ++expired;
        }
        sweepScheduled_ = !parked_.empty() && !closed_;
        if (sweepScheduled_) {
            std::weak_ptr<DdsMethodHandler> weak = weak_from_this();
            executor_->Schedule(parked_.front().arrival + kParkTime, [weak] {
                if (auto self = weak.lock()) {
                    self->SweepParked();
                }
            });
        }
    }
    if (expired > 0) {
        dropped_ += expired;
        CmLog().LogWarn("DdsParkedExpired:" + topic_, kPeerLimit)
            << "DDS driver: dropped " << expired << " requests on \"" << topic_ << "\" that waited "
            << kParkTime.count() << " s for the offer or for their caller's reply reader";
    }
}

void DdsMethodHandler::SetOffered(bool offered) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        offer_ = offered ? OfferState::kOffered : OfferState::kWithdrawn;
    }
    std::weak_ptr<DdsMethodHandler> weak = weak_from_this();
    executor_->Post([weak] {
        if (auto self = weak.lock()) {
            self->FlushParked();
        }
    });
}

bool DdsMethodHandler::SendReply(unsigned char* buffer, std::uint64_t size, const MethodMsgPtr& msg,
                                 std::uint32_t flags) {
    const std::unique_ptr<unsigned char[]> owned(buffer);
    if (msg == nullptr || msg->driverType != DriverType::kDds || msg->replyRoute == nullptr) {
        CmLog().LogError() << "DDS driver: a reply on \"" << topic_
                           << "\" names no DDS request; not sent";
        return false;
    }
    const auto* route = static_cast<const DdsReplyRoute*>(msg->replyRoute.get());
    if (route->noReturn) {
        return true;  // the caller asked for no reply
    }
    if (size > kMaxPayloadSize || (size > 0 && buffer == nullptr)) {
        ++replyFailures_;
        CmLog().LogError() << "DDS driver: a reply of " << size << " bytes on \"" << topic_
                           << "\" is not sent: more than " << kMaxPayloadSize << " bytes";
        return false;
    }
    Envelope envelope{};
    FillEnvelope(envelope, instance_, serviceId_, entityId_, flags, buffer, size);
    envelope.uuidHigh = route->uuid.high;
    envelope.uuidLow = route->uuid.low;
    const dds_return_t rc = dds_write(writer_, &envelope);
    if (rc < 0) {
        ++replyFailures_;
        CmLog().LogWarn("DdsReplyFailed:" + topic_, kPeerLimit)
            << "DDS driver: a reply on \"" << topic_
            << "\" could not be written: " << dds_strretcode(rc);
        return false;
    }
    ++replies_;
    return true;
}

bool DdsMethodHandler::ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                                 const MethodMsgPtr& msg, bool /*flag*/) {
    return SendReply(buffer, size.length, msg, 0);
}

bool DdsMethodHandler::ReplyError(unsigned char* buffer, std::uint64_t size,
                                  const MethodMsgPtr& msg, bool /*flag*/) {
    return SendReply(buffer, size, msg, kFlagErrorReply);
}

unsigned char* DdsMethodHandler::AllocateBuffer(const vcc::driver::SizeRecord& size,
                                                const MethodMsg& /*msg*/) {
    return AllocateFor(topic_, size.length);
}

void DdsMethodHandler::ReturnLoan(const unsigned char* payload) {
    delete[] payload;
}

void DdsMethodHandler::SetReceiveHandler(vcc::driver::ReceiveHandler handler) {
    std::unique_lock<std::mutex> lock(handlerMutex_);
    if (handler) {
        handler_ = std::make_shared<const vcc::driver::ReceiveHandler>(std::move(handler));
    } else {
        handler_.reset();
    }
    const std::size_t own = callingHandler == this ? 1 : 0;
    handlerIdle_.wait(lock, [&] { return running_ <= own; });
}

void DdsMethodHandler::SetStats(std::shared_ptr<vcc::utils::stats::Stats> stats) {
    if (stats != nullptr) {
        stats->SetEntityName(DriverType::kDds, topic_);
    }
    std::lock_guard<std::mutex> lock(handlerMutex_);
    stats_ = std::move(stats);
}

String DdsMethodHandler::GetStatisticsText(DriverType driver) const {
    if (driver != DriverType::kDds) {
        return {};
    }
    const std::uint64_t counts[] = {received_, otherInstance_, refused_,      parkedCount_,
                                    dropped_,  replies_,       replyFailures_};
    if (std::all_of(std::begin(counts), std::end(counts), [](std::uint64_t c) { return c == 0; })) {
        return {};
    }
    std::ostringstream out;
    out << "ddsRequestsReceived=" << counts[0] << "\nddsRequestsForOtherInstances=" << counts[1]
        << "\nddsRequestsRefused=" << counts[2] << "\nddsRequestsParked=" << counts[3]
        << "\nddsRequestsDropped=" << counts[4] << "\nddsRepliesSent=" << counts[5]
        << "\nddsReplyFailures=" << counts[6] << "\n";
    return out.str();
}

std::shared_ptr<DdsEventHandler> DdsEventHandler::Create(
    const api::types::EventInfo& info, const String& instance,
    std::shared_ptr<DdsParticipant> participant) {
    const dds_entity_t topic = participant->Topic(info.dds.topic);
    if (topic < 0) {
        return nullptr;
    }
    const EndpointQos qos(kDepth, EndpointUserData(instance));
    const dds_entity_t writer = dds_create_writer(participant->Handle(), topic, qos.Get(), nullptr);
    if (writer < 0) {
        CmLog().LogError() << "DDS driver: cannot create the writer of \"" << info.dds.topic
                           << "\": " << dds_strretcode(writer);
        return nullptr;
    }
    return std::shared_ptr<DdsEventHandler>(
        new DdsEventHandler(info, instance, std::move(participant), writer));
}

DdsEventHandler::DdsEventHandler(const api::types::EventInfo& info, String instance,
                                 std::shared_ptr<DdsParticipant> participant, dds_entity_t writer)
    : serviceId_(info.serviceId),
      entityId_(info.entityId),
      serviceInstance_(info.instanceId),
      instance_(std::move(instance)),
      topic_(info.dds.topic),
      participant_(std::move(participant)),
      writer_(writer) {}

DdsEventHandler::~DdsEventHandler() {
    Close();
}

void DdsEventHandler::Close() {
    if (!closed_.exchange(true)) {
        dds_delete(writer_);
    }
}

void DdsEventHandler::SetOffered(bool offered) {
    offered_ = offered;
}

bool DdsEventHandler::IsReady() const {
    return offered_ && !closed_;
}

unsigned char* DdsEventHandler::AllocateBuffer(std::uint64_t size) {
    return AllocateFor(topic_, size);
}

bool DdsEventHandler::SendEvent(unsigned char* buffer, std::uint64_t size,
                                api::types::internal::SampleInfoImpl& /*sampleInfo*/) {
    const std::unique_ptr<unsigned char[]> owned(buffer);
    if (!IsReady()) {
        CmLog().LogWarn("DdsEventNotOffered:" + topic_, kPeerLimit)
            << "DDS driver: an event on \"" << topic_ << "\" is not sent: not offered";
        return false;
    }
    if (size > kMaxPayloadSize || (size > 0 && buffer == nullptr)) {
        CmLog().LogError() << "DDS driver: an event of " << size << " bytes on \"" << topic_
                           << "\" is not sent";
        return false;
    }
    Envelope envelope{};
    FillEnvelope(envelope, instance_, serviceId_, entityId_, 0, buffer, size);
    envelope.uuidLow = ++sequence_;
    const dds_return_t rc = dds_write(writer_, &envelope);
    if (rc < 0) {
        CmLog().LogWarn("DdsEventFailed:" + topic_, kPeerLimit)
            << "DDS driver: an event on \"" << topic_
            << "\" could not be written: " << dds_strretcode(rc);
        return false;
    }
    ++sent_;
    return true;
}

}  // namespace lumo::driver::dds
