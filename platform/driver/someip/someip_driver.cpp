#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

#include "platform/driver/someip/someip_core.h"

namespace lumo::driver::someip {

using ara::tessel::common::log::Log;
using ara::tessel::common::log::LogLimitConfig;
namespace types = vcc::api::types;

unsigned char* AllocatePayload(std::uint64_t payloadSize, bool filled) {
    if (payloadSize > std::numeric_limits<std::uint32_t>::max()) {
        return nullptr;
    }
    // Padding that a serializer skips must not carry old contents onto the wire.
    unsigned char* block = AllocateBlock(kHeaderSize + payloadSize, !filled);
    return block == nullptr ? nullptr : block + kHeaderSize;
}

OutMessagePtr AdoptPayload(unsigned char* payload, SomeipHeader header, std::uint64_t size) {
    auto message = std::make_shared<OutMessage>();
    message->data.reset(payload - kHeaderSize);
    message->size = kHeaderSize + size;
    header.length = static_cast<std::uint32_t>(kLengthFieldCovers + size);
    EncodeHeader(header, message->data.get());
    return message;
}

OutMessagePtr MakeMessage(SomeipHeader header, const unsigned char* payload, std::size_t size) {
    auto message = std::make_shared<OutMessage>();
    message->data.reset(AllocateBlock(kHeaderSize + size, false));
    if (message->data == nullptr) {
        throw std::bad_alloc();
    }
    message->size = kHeaderSize + size;
    header.length = static_cast<std::uint32_t>(kLengthFieldCovers + size);
    EncodeHeader(header, message->data.get());
    if (size > 0) {
        std::memcpy(message->data.get() + kHeaderSize, payload, size);
    }
    return message;
}

// Without a stream, which would build the C++ locale for this alone.
ara::core::String ToString(const tcp::endpoint& endpoint) {
    return endpoint.address().to_string() + ':' + std::to_string(endpoint.port());
}

ara::core::String ToString(const udp::endpoint& endpoint) {
    return endpoint.address().to_string() + ':' + std::to_string(endpoint.port());
}

std::array<std::uint8_t, 4> AddressBytes(const asio::ip::address& address) {
    return address.is_v4() ? address.to_v4().to_bytes() : std::array<std::uint8_t, 4>{};
}

asio::ip::address_v4 AddressFromBytes(const std::array<std::uint8_t, 4>& bytes) {
    return asio::ip::address_v4(bytes);
}

// ---- Connection ----

Connection::Connection(Core& core, tcp::socket socket, std::uint32_t maxMessageSize,
                       std::size_t maxRequestsInFlight)
    : socket_(std::move(socket)),
      core_(core),
      framer_(maxMessageSize),
      serial_(core.NextSerial()),
      maxRequestsInFlight_(maxRequestsInFlight) {
    asio::error_code ignored;
    remote_ = socket_.remote_endpoint(ignored);
    local_ = socket_.local_endpoint(ignored);
}

void Connection::Start() {
    asio::error_code ignored;
    socket_.set_option(tcp::no_delay(true), ignored);
    remote_ = socket_.remote_endpoint(ignored);
    local_ = socket_.local_endpoint(ignored);
    Read();
    std::lock_guard<std::mutex> lock(sendMutex_);
    started_ = true;
    if (!queue_.empty() && !writing_) {
        WriteLocked();
    }
}

void Connection::Read() {
    auto self = shared_from_this();
    socket_.async_read_some(
        asio::buffer(framer_.WritableArea(), framer_.WritableSize()),
        [this, self](const asio::error_code& error, std::size_t count) {
            if (closed_) {
                return;
            }
            if (error) {
                Close(error == asio::error::eof ? "closed by peer" : error.message());
                return;
            }
            framer_.Commit(count);
            if (Deliver() && !closed_) {
                Read();
            }
        });
}

bool Connection::Deliver() {
    const unsigned char* message = nullptr;
    std::size_t size = 0;
    SomeipHeader header;
    for (;;) {
        const FrameStatus status = framer_.Next(message, size, header);
        if (status == FrameStatus::kNeedMore) {
            break;
        }
        if (status != FrameStatus::kMessage) {
            OnFrameError(status, header);
            // An error reply may still be queued: it goes out before the connection closes.
            CloseAfterSending();
            return true;
        }
        OnMessage(message, size, header);
        if (closed_) {
            return true;
        }
        {
            std::lock_guard<std::mutex> lock(sendMutex_);
            if (closeAfterWrite_) {
                return true;
            }
        }
        if (PauseIfBusy()) {
            return false;
        }
    }
    if (framer_.HasPartial()) {
        if (partialSince_ == Clock::time_point{}) {
            partialSince_ = Clock::now();
            core_.WakeBy(partialSince_ + core_.options.partialMessageTimeout);
        }
    } else {
        partialSince_ = Clock::time_point{};
    }
    return true;
}

bool Connection::PauseIfBusy() {
    if (maxRequestsInFlight_ == 0 || inFlight_.load() < maxRequestsInFlight_) {
        return false;
    }
    readPaused_.store(true);
    // A request that ended since the count was read may not have seen the flag: take it back.
    if (inFlight_.load() < maxRequestsInFlight_ && readPaused_.exchange(false)) {
        return false;
    }
    // The peer is not the one stalling a half message while we do not read.
    partialSince_ = Clock::time_point{};
    return true;
}

void Connection::RequestFinished() {
    if (inFlight_.fetch_sub(1) - 1 < maxRequestsInFlight_ && readPaused_.exchange(false)) {
        auto self = shared_from_this();
        core_.Post([self] { self->ResumeReading(); });
    }
}

void Connection::ResumeReading() {
    if (!closed_ && Deliver() && !closed_) {
        Read();
    }
}

bool Connection::Send(OutMessagePtr message, bool dropWhenFull) {
    std::unique_lock<std::mutex> lock(sendMutex_);
    if (closed_ || closeAfterWrite_) {
        return false;
    }
    if (queuedBytes_ + message->size > core_.options.maxSendQueueBytes && !queue_.empty()) {
        const std::size_t queued = queuedBytes_;
        lock.unlock();
        core_.log->LogWarn("SomeipDriver_SendQueueFull", LogLimitConfig{})
            << "[SomeipDriver][Send queue full, "
            << (dropWhenFull ? "connection dropped" : "message dropped")
            << "][peer=" << ToString(remote_) << ", queued=" << queued << "]";
        if (dropWhenFull) {
            Close("send queue full");
        }
        return false;
    }
    if (queue_.empty()) {
        lastWriteProgress_ = Clock::now();
    }
    queuedBytes_ += message->size;
    queue_.push_back(std::move(message));
    if (started_ && !writing_) {
        WriteLocked();
    }
    return true;
}

bool Connection::TrySendDirect(const OutMessagePtr& message) {
    std::unique_lock<std::mutex> lock(sendMutex_);
    if (closed_ || !started_ || closeAfterWrite_ || writing_ || !queue_.empty()) {
        return false;
    }
    const ssize_t sent = ::send(socket_.native_handle(), message->data.get(), message->size,
                                MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(message->size)) {
        return true;
    }
    if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
        return false;  // the I/O thread sees the error too and closes
    }
    // The socket took part of it: the rest goes out from the I/O thread, before anything else,
    // from the message itself (a large reply is megabytes, not worth copying).
    const std::size_t done = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    queue_.push_back(message);
    frontSent_ = done;
    queuedBytes_ += message->size - done;
    lastWriteProgress_ = Clock::now();
    writing_ = true;  // reserved for the I/O thread: no other direct send overtakes the rest
    lock.unlock();
    auto self = shared_from_this();
    return core_.Post([self] {
        std::lock_guard<std::mutex> relock(self->sendMutex_);
        self->writing_ = false;
        if (self->closed_) {
            self->ClearQueueLocked();
        } else if (!self->queue_.empty()) {
            self->WriteLocked();
        }
    });
}

void Connection::WriteLocked() {
    writing_ = true;
    // Everything queued goes in one gathered write; asio tries it at once before waiting.
    std::vector<asio::const_buffer> buffers;
    const std::size_t batch = std::min<std::size_t>(queue_.size(), 64);
    buffers.reserve(batch);
    buffers.emplace_back(queue_[0]->data.get() + frontSent_, queue_[0]->size - frontSent_);
    for (std::size_t i = 1; i < batch; ++i) {
        buffers.emplace_back(queue_[i]->data.get(), queue_[i]->size);
    }
    auto self = shared_from_this();
    asio::async_write(socket_, buffers,
                      [this, self, batch](const asio::error_code& error, std::size_t /*count*/) {
                          std::unique_lock<std::mutex> lock(sendMutex_);
                          writing_ = false;
                          if (closed_) {
                              ClearQueueLocked();  // left by Close while this write owned it
                              return;
                          }
                          if (error) {
                              lock.unlock();
                              Close(error.message());
                              return;
                          }
                          queuedBytes_ += frontSent_;
                          frontSent_ = 0;
                          for (std::size_t i = 0; i < batch; ++i) {
                              queuedBytes_ -= queue_.front()->size;
                              queue_.pop_front();
                          }
                          lastWriteProgress_ = Clock::now();
                          if (!queue_.empty()) {
                              WriteLocked();
                          } else if (closeAfterWrite_) {
                              lock.unlock();
                              Close("closed after error reply");
                          }
                      });
}

void Connection::ClearQueueLocked() {
    queue_.clear();
    queuedBytes_ = 0;
    frontSent_ = 0;
}

void Connection::Close(const ara::core::String& reason) {
    {
        std::lock_guard<std::mutex> lock(sendMutex_);
        if (closed_.exchange(true)) {
            return;
        }
        asio::error_code ignored;
        socket_.shutdown(tcp::socket::shutdown_both, ignored);
        socket_.close(ignored);
        // A write in flight owns the front of the queue until its handler has run, which
        // frees the queue then.
        if (!writing_) {
            ClearQueueLocked();
        }
    }
    OnClosed(reason);
}

void Connection::CloseAfterSending() {
    {
        std::lock_guard<std::mutex> lock(sendMutex_);
        closeAfterWrite_ = true;
        if (writing_ || !queue_.empty()) {
            return;
        }
    }
    Close("closed after error reply");
}

void Connection::CheckTimeouts(Clock::time_point now, Clock::time_point& next) {
    if (closed_) {
        return;
    }
    if (partialSince_ != Clock::time_point{}) {
        const auto deadline = partialSince_ + core_.options.partialMessageTimeout;
        if (now > deadline) {
            core_.log->LogWarn("SomeipDriver_PartialTimeout", LogLimitConfig{})
                << "[SomeipDriver][Connection closed: incomplete message timed out][peer="
                << ToString(remote_) << ", buffered=" << framer_.Buffered() << "]";
            Close("incomplete message timed out");
            return;
        }
        next = std::min(next, deadline);
    }
    std::size_t stalled = 0;
    {
        std::lock_guard<std::mutex> lock(sendMutex_);
        if (!queue_.empty()) {
            const auto deadline = lastWriteProgress_ + core_.options.sendStallTimeout;
            if (now > deadline) {
                stalled = queuedBytes_;
            } else {
                next = std::min(next, deadline);
            }
        }
    }
    if (stalled > 0) {
        core_.log->LogWarn("SomeipDriver_SendStalled", LogLimitConfig{})
            << "[SomeipDriver][Connection closed: peer does not read][peer=" << ToString(remote_)
            << ", queued=" << stalled << "]";
        Close("peer does not read");
    }
}

// ---- Core ----

namespace {

std::atomic<std::uint32_t> driverCounter{0};

std::uint16_t MakeClientId(std::uint16_t configured) {
    if (configured != 0 && configured != 0xFFFF) {
        return configured;
    }
    // The process id spreads processes; the counter separates drivers of one process.
    const std::uint32_t mixed = static_cast<std::uint32_t>(::getpid()) * 16U + driverCounter++;
    return static_cast<std::uint16_t>(mixed % 0xFFFEU + 1U);
}

}  // namespace

SomeipDriver::Core::Core(SomeipDriverOptions opts)
    : options(std::move(opts)),
      log(Log::GetLog("CM")),
      clientId(MakeClientId(options.clientId)),
      random_(static_cast<std::uint32_t>(::getpid()) ^
              static_cast<std::uint32_t>(Clock::now().time_since_epoch().count())) {}

SomeipDriver::Core::~Core() {
    Stop();
}

void SomeipDriver::Core::Start() {
    tickTimer_ = std::make_unique<asio::steady_timer>(io);
    workGuard_.emplace(asio::make_work_guard(io));
    ScheduleTick(Clock::now() + options.tick);
    std::promise<void> started;
    auto ready = started.get_future();
    thread_ = std::thread([this, &started] {
        pthread_setname_np(pthread_self(), "someip_io");
        ioThreadId_ = std::this_thread::get_id();
        started_.store(true, std::memory_order_release);
        started.set_value();
        io.run();
    });
    ready.wait();
}

bool SomeipDriver::Core::Post(std::function<void()> fn) {
    if (!started_.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(stopMutex_);
        if (!started_.load(std::memory_order_relaxed) && !stopped_) {
            Start();
        }
    }
    std::lock_guard<std::mutex> lock(postMutex_);
    if (stopped_) {
        return false;
    }
    asio::post(io, std::move(fn));
    return true;
}

std::uint16_t SomeipDriver::Core::NextSessionId() noexcept {
    std::uint16_t current = session_.load();
    std::uint16_t next = 0;
    do {
        next = current == 0xFFFF ? 1 : static_cast<std::uint16_t>(current + 1);
    } while (!session_.compare_exchange_weak(current, next));
    return next;
}

void SomeipDriver::Core::ScheduleTick(Clock::time_point at) {
    // Moving the timer cancels its wait; a tick that already fired and waits to run schedules
    // again itself, so one chain of ticks remains.
    tickTimer_->expires_at(at);
    tickAt_.store(at.time_since_epoch().count());
    tickTimer_->async_wait([this](const asio::error_code& error) {
        if (!error && !stopped_) {
            Tick();
        }
    });
}

void SomeipDriver::Core::Tick() {
    tickAt_.store(std::numeric_limits<Clock::rep>::max());
    ticking_ = true;
    tickNext_ = Clock::time_point::max();
    const auto now = Clock::now();
    Clock::time_point next = std::min(now + options.idleTick, ReleaseIdleBlocks(now));
    TickServer(now, next);
    TickClient(now, next);
    ticking_ = false;
    ScheduleTick(std::max(std::min(next, tickNext_), now + options.tick));
}

void SomeipDriver::Core::WakeBy(Clock::time_point deadline) {
    if (deadline.time_since_epoch().count() >= tickAt_.load()) {
        return;
    }
    if (!OnIoThread()) {
        Post([this, deadline] { WakeBy(deadline); });
    } else if (ticking_) {
        tickNext_ = std::min(tickNext_, deadline);  // what the tick set going
    } else if (!stopped_) {
        ScheduleTick(deadline);
    }
}

void SomeipDriver::Core::Stop() {
    std::lock_guard<std::mutex> stopLock(stopMutex_);
    if (!thread_.joinable()) {
        std::lock_guard<std::mutex> lock(postMutex_);
        stopped_ = true;  // never started: nothing to close, and nothing starts it any more
        return;
    }
    {
        // From here on nothing new is posted; what was posted before runs first.
        std::lock_guard<std::mutex> lock(postMutex_);
        stopped_ = true;
    }
    std::promise<void> closed;
    asio::post(io, [this, &closed] {
        CloseAll();
        closed.set_value();
    });
    closed.get_future().wait();
    // With every socket closed and the tick cancelled, run() returns once the last handlers
    // (aborted operations) have run.
    workGuard_.reset();
    thread_.join();
    remotes_.clear();
    services_.clear();
    endpoints_.clear();
    serverSd_.clear();
    clientSd_.reset();
    clientUdp_.reset();
    tickTimer_.reset();
}

void SomeipDriver::Core::CloseAll() {
    tickTimer_->cancel();
    for (auto& [key, service] : services_) {
        if (service->offered) {
            SendOffer(*service, nullptr, true);
            service->offered = false;
        }
        service->subscribers.clear();
    }
    StopClient();
    for (auto& [key, endpoint] : endpoints_) {
        endpoint->Close();
    }
    for (auto& [key, sd] : serverSd_) {
        sd->Close();
    }
}

// ---- The driver ----

SomeipDriver::SomeipDriver(SomeipDriverOptions options)
    : core_(std::make_shared<Core>(std::move(options))) {}

SomeipDriver::~SomeipDriver() {
    core_->Stop();
}

std::uint16_t SomeipDriver::ClientId() const noexcept {
    return core_->clientId;
}

namespace {

bool ParseInstance(const ara::core::String& text, std::uint16_t& out) {
    if (text.empty() || text.size() > 5) {
        return false;
    }
    std::uint32_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    if (value > 0xFFFF) {
        return false;
    }
    out = static_cast<std::uint16_t>(value);
    return true;
}

}  // namespace

std::shared_ptr<vcc::driver::MethodHandler> SomeipDriver::CreateMethodHandler(
    const types::MethodInfo& info) {
    auto core = core_;
    return core_->RunOnIo<std::shared_ptr<vcc::driver::MethodHandler>>(
        [core, &info]() -> std::shared_ptr<vcc::driver::MethodHandler> {
            ara::core::String error;
            auto service = core->ServiceFor(info.someip, error);
            if (service == nullptr) {
                core->log->LogError()
                    << "[SomeipDriver][Create method handler failed][service="
                    << info.someip.serviceId << ", method=" << info.someip.memberId << "][" << error
                    << "]";
                return nullptr;
            }
            auto handler =
                std::make_shared<SomeipMethodHandler>(core, service, info.someip.memberId);
            service->methods[info.someip.memberId] = handler;
            return handler;
        });
}

std::shared_ptr<vcc::driver::EventHandler> SomeipDriver::CreateEventHandler(
    const types::EventInfo& info) {
    auto core = core_;
    return core_->RunOnIo<std::shared_ptr<vcc::driver::EventHandler>>(
        [core, &info]() -> std::shared_ptr<vcc::driver::EventHandler> {
            ara::core::String error;
            if ((info.someip.memberId & kEventBit) == 0 || info.someip.memberId == 0xFFFF) {
                error = "event id without bit 15";
            }
            auto service = error.empty() ? core->ServiceFor(info.someip, error) : nullptr;
            if (service == nullptr) {
                core->log->LogError() << "[SomeipDriver][Create event handler failed][service="
                                      << info.someip.serviceId << ", event=" << info.someip.memberId
                                      << "][" << error << "]";
                return nullptr;
            }
            service->events[info.someip.memberId] = info.someip.eventgroupId;
            service->subscribers[info.someip.eventgroupId];
            return std::make_shared<SomeipEventHandler>(core, service, info.someip.memberId,
                                                        info.someip.eventgroupId);
        });
}

bool SomeipDriver::OfferService(std::uint16_t serviceId, const ara::core::String& instanceId) {
    std::uint16_t instance = 0;
    if (!ParseInstance(instanceId, instance)) {
        core_->log->LogError()
            << "[SomeipDriver][Offer failed: instance id is not a number][service=" << serviceId
            << ", instance=" << instanceId << "]";
        return false;
    }
    auto core = core_;
    return core_->RunOnIo<bool>(
        [core, serviceId, instance] { return core->Offer(serviceId, instance); });
}

void SomeipDriver::StopOfferService(std::uint16_t serviceId, const ara::core::String& instanceId) {
    std::uint16_t instance = 0;
    if (!ParseInstance(instanceId, instance)) {
        return;
    }
    auto core = core_;
    core_->RunOnIo<bool>([core, serviceId, instance] {
        core->StopOffer(serviceId, instance);
        return true;
    });
}

std::shared_ptr<vcc::driver::MethodClient> SomeipDriver::CreateMethodClient(
    const types::MethodInfo& info) {
    auto core = core_;
    auto remote = core_->RunOnIo<std::shared_ptr<RemoteService>>(
        [core, &info] { return core->Remote(info.someip); });
    if (remote == nullptr) {
        return nullptr;
    }
    return std::make_shared<SomeipMethodClient>(core_, remote, info.someip.memberId,
                                                info.someip.udp);
}

std::shared_ptr<vcc::driver::EventClient> SomeipDriver::CreateEventClient(
    const types::EventInfo& info) {
    auto core = core_;
    auto remote = core_->RunOnIo<std::shared_ptr<RemoteService>>(
        [core, &info] { return core->Remote(info.someip); });
    if (remote == nullptr) {
        return nullptr;
    }
    return std::make_shared<SomeipEventClient>(core_, remote, info.someip.memberId,
                                               info.someip.eventgroupId, info.someip.udp);
}

}  // namespace lumo::driver::someip
