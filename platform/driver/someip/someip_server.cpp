// The server side of the SOME/IP driver: endpoints, connections, method and event handlers,
// offers and subscriptions.

#include <cstring>

#include "platform/driver/someip/someip_core.h"

namespace lumo::driver::someip {

using ara::tessel::common::log::LogLimitConfig;
namespace types = vcc::api::types;

namespace {

constexpr int kListenBacklog = 64;
constexpr std::size_t kUdpBufferSize = std::size_t{64} * 1024;

// uuid.high of a UDP request: bit 48 marks UDP, the peer's port sits above the client id.
constexpr std::uint64_t kUdpSerialMark = std::uint64_t{1} << 48U;

ara::core::String PeerText(const std::shared_ptr<Connection>& connection,
                           const udp::endpoint& peer) {
    return connection ? "tcp " + ToString(connection->Remote()) : "udp " + ToString(peer);
}

}  // namespace

// ---- ServerConnection ----

ServerConnection::ServerConnection(Core& core, tcp::socket socket,
                                   std::weak_ptr<ServerEndpoint> endpoint,
                                   std::uint32_t maxMessageSize)
    : Connection(core, std::move(socket), maxMessageSize, core.options.maxRequestsInFlight),
      endpoint_(std::move(endpoint)) {}

// ---- ReplyRoute ----

ReplyRoute::ReplyRoute(const std::shared_ptr<Connection>& from, std::weak_ptr<ServerEndpoint> to,
                       udp::endpoint peer, const SomeipHeader& header)
    : connection(from),
      endpoint(std::move(to)),
      udpPeer(std::move(peer)),
      tcp(from != nullptr),
      request(header) {
    if (from) {
        from->RequestStarted();
    }
}

ReplyRoute::~ReplyRoute() {
    if (tcp) {
        if (auto from = connection.lock()) {
            from->RequestFinished();
        }
    } else if (auto to = endpoint.lock()) {
        to->UdpRequestFinished(udpPeer);
    }
}

void ServerConnection::OnMessage(const unsigned char* message, std::size_t size,
                                 const SomeipHeader& header) {
    if (auto endpoint = endpoint_.lock()) {
        endpoint->Dispatch(message, size, header, shared_from_this(), udp::endpoint{});
    }
}

void ServerConnection::OnFrameError(FrameStatus status, const SomeipHeader& header) {
    core_.log->LogWarn(ara::core::String("SomeipDriver_Unframeable_") + FrameStatusName(status),
                       LogLimitConfig{})
        << "[SomeipDriver][Connection closed: " << FrameStatusName(status)
        << "][peer=" << ToString(remote_) << ", length=" << header.length << "]";
    if (status == FrameStatus::kWrongProtocol &&
        header.messageType == static_cast<std::uint8_t>(MessageType::kRequest)) {
        if (auto endpoint = endpoint_.lock()) {
            endpoint->Refuse(header, ReturnCode::kWrongProtocolVersion, shared_from_this(),
                             udp::endpoint{});
        }
    }
}

void ServerConnection::OnClosed(const ara::core::String& /*reason*/) {
    core_.DropConnectionSubscribers(this);
    if (auto endpoint = endpoint_.lock()) {
        endpoint->Forget(shared_from_this());
    }
}

// ---- ServerEndpoint ----

ServerEndpoint::ServerEndpoint(Core& core, ara::core::String address, std::uint16_t port,
                               std::uint32_t maxMessageSize, std::uint32_t udpMax)
    : udpMaxSize(udpMax),
      core_(core),
      address_(std::move(address)),
      port_(port),
      maxMessageSize_(maxMessageSize),
      acceptor_(core.io),
      acceptRetry_(core.io),
      udp_(core.io),
      udpBuffer_(kUdpBufferSize) {}

bool ServerEndpoint::Open(ara::core::String& error) {
    asio::error_code ec;
    const auto address = asio::ip::make_address(address_, ec);
    if (ec) {
        error = "bad address " + address_;
        return false;
    }
    const tcp::endpoint tcpEndpoint(address, port_);
    acceptor_.open(tcpEndpoint.protocol(), ec);
    if (!ec) {
        acceptor_.set_option(tcp::acceptor::reuse_address(true), ec);
    }
    if (!ec) {
        acceptor_.bind(tcpEndpoint, ec);
    }
    if (!ec) {
        acceptor_.listen(kListenBacklog, ec);
    }
    if (ec) {
        error = "tcp " + ToString(tcpEndpoint) + ": " + ec.message();
        return false;
    }
    const udp::endpoint udpEndpoint(address, port_);
    udp_.open(udpEndpoint.protocol(), ec);
    if (!ec) {
        udp_.bind(udpEndpoint, ec);
    }
    if (ec) {
        error = "udp " + ToString(udpEndpoint) + ": " + ec.message();
        acceptor_.close(ec);
        return false;
    }
    tcpLocal = acceptor_.local_endpoint(ec);
    udpLocal = udp_.local_endpoint(ec);
    return true;
}

void ServerEndpoint::Start() {
    Accept();
    ReceiveUdp();
}

void ServerEndpoint::Close() {
    asio::error_code ignored;
    acceptor_.close(ignored);
    acceptRetry_.cancel();
    udp_.close(ignored);
    const auto connections = connections_;
    for (const auto& connection : connections) {
        connection->Close("endpoint closed");
    }
    connections_.clear();
}

void ServerEndpoint::Accept() {
    auto self = shared_from_this();
    acceptor_.async_accept([this, self](const asio::error_code& error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
            return;
        }
        if (!error) {
            if (connections_.size() >= core_.options.maxConnections) {
                asio::error_code ignored;
                core_.log->LogWarn("SomeipDriver_TooManyConnections", LogLimitConfig{})
                    << "[SomeipDriver][Connection refused: limit of "
                    << core_.options.maxConnections
                    << " reached][peer=" << ToString(socket.remote_endpoint(ignored)) << "]";
                socket.close(ignored);
            } else {
                auto connection = std::make_shared<ServerConnection>(core_, std::move(socket), self,
                                                                     maxMessageSize_);
                connections_.insert(connection);
                connection->Start();
            }
            Accept();
            return;
        }
        // Out of descriptors or memory: accepting again at once would only spin.
        core_.log->LogWarn("SomeipDriver_AcceptFailed", LogLimitConfig{})
            << "[SomeipDriver][Accept failed, retried shortly][" << error.message() << "]";
        acceptRetry_.expires_after(std::chrono::milliseconds(100));
        acceptRetry_.async_wait([this, self](const asio::error_code& waitError) {
            if (!waitError && acceptor_.is_open()) {
                Accept();
            }
        });
    });
}

void ServerEndpoint::ReceiveUdp() {
    auto self = shared_from_this();
    udp_.async_receive_from(
        asio::buffer(udpBuffer_), udpFrom_,
        [this, self](const asio::error_code& error, std::size_t count) {
            if (error == asio::error::operation_aborted || !udp_.is_open()) {
                return;
            }
            if (!error) {
                DatagramReader reader(udpBuffer_.data(), count);
                const unsigned char* message = nullptr;
                std::size_t size = 0;
                SomeipHeader header;
                for (;;) {
                    const FrameStatus status = reader.Next(message, size, header);
                    if (status == FrameStatus::kNeedMore) {
                        break;
                    }
                    if (status == FrameStatus::kMessage) {
                        Dispatch(message, size, header, nullptr, udpFrom_);
                        continue;
                    }
                    core_.log->LogWarn("SomeipDriver_BadDatagram", LogLimitConfig{})
                        << "[SomeipDriver][Datagram dropped: " << FrameStatusName(status)
                        << "][peer=udp " << ToString(udpFrom_) << ", bytes=" << count << "]";
                    if (status == FrameStatus::kWrongProtocol &&
                        header.messageType == static_cast<std::uint8_t>(MessageType::kRequest)) {
                        Refuse(header, ReturnCode::kWrongProtocolVersion, nullptr, udpFrom_);
                    }
                    break;
                }
            }
            ReceiveUdp();
        });
}

void ServerEndpoint::Dispatch(const unsigned char* message, std::size_t size,
                              const SomeipHeader& header,
                              const std::shared_ptr<Connection>& connection,
                              const udp::endpoint& peer) {
    if (IsMagicCookie(header)) {
        return;
    }
    const std::uint8_t type = header.messageType;
    const bool isRequest = type == static_cast<std::uint8_t>(MessageType::kRequest);
    const bool isNoReturn = type == static_cast<std::uint8_t>(MessageType::kRequestNoReturn);
    auto refuse = [&](ReturnCode code, const char* why) {
        core_.log->LogWarn(
            ara::core::String("SomeipDriver_") + ReturnCodeName(static_cast<std::uint8_t>(code)),
            LogLimitConfig{})
            << "[SomeipDriver][Request refused: " << why << "][service=" << header.serviceId
            << ", method=" << header.methodId << ", type=" << static_cast<unsigned>(type)
            << ", code=" << ReturnCodeName(static_cast<std::uint8_t>(code))
            << ", peer=" << PeerText(connection, peer) << "]";
        // No error answers a notification, a request without return or an error.
        const auto base = static_cast<std::uint8_t>(type & static_cast<std::uint8_t>(~kTpFlag));
        if (base != static_cast<std::uint8_t>(MessageType::kNotification) &&
            base != static_cast<std::uint8_t>(MessageType::kRequestNoReturn) &&
            base != static_cast<std::uint8_t>(MessageType::kError)) {
            Refuse(header, code, connection, peer);
        }
    };
    if (!isRequest && !isNoReturn) {
        refuse(ReturnCode::kWrongMessageType, "message type not taken by a server");
        if (connection && !IsKnownMessageType(type)) {
            // A type nobody defines: the stream is not what it claims to be.
            connection->CloseAfterSending();
        }
        return;
    }
    auto it = services.find(header.serviceId);
    std::shared_ptr<ServiceEntry> service = it == services.end() ? nullptr : it->second.lock();
    if (service == nullptr) {
        refuse(ReturnCode::kUnknownService, "unknown service");
        return;
    }
    if (header.interfaceVersion != service->majorVersion) {
        refuse(ReturnCode::kWrongInterfaceVersion, "wrong interface version");
        return;
    }
    auto methodIt = service->methods.find(header.methodId);
    std::shared_ptr<SomeipMethodHandler> handler =
        methodIt == service->methods.end() ? nullptr : methodIt->second.lock();
    if (handler == nullptr) {
        refuse(ReturnCode::kUnknownMethod, "unknown method");
        return;
    }
    if (!service->offered) {
        refuse(ReturnCode::kNotReady, "service not offered");
        return;
    }
    if (!connection && !UdpRequestStarted(peer)) {
        refuse(ReturnCode::kNotReady, "too many open requests from the peer");
        return;
    }
    auto route = std::make_shared<ReplyRoute>(connection, shared_from_this(), peer, header);
    const std::uint64_t serial = connection
                                     ? connection->Serial()
                                     : (kUdpSerialMark | static_cast<std::uint64_t>(peer.port()));
    ReturnCode refusal = ReturnCode::kNotReady;
    if (!handler->Deliver(header, message + kHeaderSize, size - kHeaderSize, std::move(route),
                          serial, refusal)) {
        refuse(refusal, "not taken by the binding");
    }
}

void ServerEndpoint::Refuse(const SomeipHeader& request, ReturnCode code,
                            const std::shared_ptr<Connection>& connection,
                            const udp::endpoint& peer) {
    auto message = MakeMessage(ReplyHeader(request, MessageType::kError, code, 0), nullptr, 0);
    if (connection) {
        connection->Send(std::move(message), true);
    } else {
        SendUdp(message, peer);
    }
}

bool ServerEndpoint::SendBack(const ReplyRoute& route, OutMessagePtr message) {
    if (route.tcp) {
        auto connection = route.connection.lock();
        return connection != nullptr && connection->Send(std::move(message), true);
    }
    SendUdp(message, route.udpPeer);
    return true;
}

void ServerEndpoint::SendUdp(const OutMessagePtr& message, const udp::endpoint& peer) {
    if (!udp_.is_open()) {
        return;
    }
    const asio::const_buffer bytes(message->data.get(), message->size);
    udp_.async_send_to(bytes, peer, [message](const asio::error_code&, std::size_t) {});
}

void ServerEndpoint::Forget(const std::shared_ptr<Connection>& connection) {
    connections_.erase(connection);
}

bool ServerEndpoint::UdpRequestStarted(const udp::endpoint& peer) {
    const std::size_t limit = core_.options.maxRequestsInFlight;
    std::lock_guard<std::mutex> lock(udpLoadMutex_);
    std::size_t& open = udpOpen_[peer];
    if (limit != 0 && open >= limit) {
        return false;
    }
    ++open;
    return true;
}

void ServerEndpoint::UdpRequestFinished(const udp::endpoint& peer) {
    std::lock_guard<std::mutex> lock(udpLoadMutex_);
    auto it = udpOpen_.find(peer);
    if (it != udpOpen_.end() && --it->second == 0) {
        udpOpen_.erase(it);
    }
}

std::shared_ptr<Connection> ServerEndpoint::FindConnection(const tcp::endpoint& remote) const {
    for (const auto& connection : connections_) {
        if (!connection->IsClosed() && connection->Remote() == remote) {
            return connection;
        }
    }
    return nullptr;
}

void ServerEndpoint::CheckTimeouts(Clock::time_point now, Clock::time_point& next) {
    // A connection that times out closes and takes itself out of the set: step past it first.
    for (auto it = connections_.begin(); it != connections_.end();) {
        const std::shared_ptr<Connection> connection = *it++;
        connection->CheckTimeouts(now, next);
    }
}

// ---- SomeipMethodHandler ----

SomeipMethodHandler::SomeipMethodHandler(std::shared_ptr<Core> core,
                                         std::shared_ptr<ServiceEntry> service,
                                         std::uint16_t methodId)
    : core_(std::move(core)),
      service_(std::move(service)),
      methodId_(methodId),
      udpMaxSize_(service_->endpoint->udpMaxSize) {}

SomeipMethodHandler::~SomeipMethodHandler() {
    // What the binding never gave back goes now.
    std::lock_guard<std::mutex> lock(bufferMutex_);
    for (const unsigned char* payload : loans_) {
        delete[] payload;
    }
    for (const unsigned char* buffer : buffers_) {
        FreeBlock(buffer - kHeaderSize);
    }
}

bool SomeipMethodHandler::Deliver(const SomeipHeader& header, const unsigned char* payload,
                                  std::size_t size, std::shared_ptr<ReplyRoute> route,
                                  std::uint64_t peerSerial, ReturnCode& refusal) {
    unsigned char* copy = nullptr;
    {
        std::lock_guard<std::mutex> lock(bufferMutex_);
        if (loans_.size() >= core_->options.maxOutstandingRequests) {
            refusal = ReturnCode::kNotReady;
            ++refused_;
            return false;
        }
        // A request of a method without arguments has an empty payload, but never a null one:
        // the binding takes null with size 0 for a message that failed before it had content.
        copy = new unsigned char[size == 0 ? 1 : size];
        if (size > 0) {
            std::memcpy(copy, payload, size);
        }
        loans_.insert(copy);
    }
    auto msg = std::make_shared<types::MethodMsg>();
    msg->payload = copy;
    msg->size = size;
    msg->driverType = types::DriverType::kSomeip;
    msg->serializeType = static_cast<std::uint8_t>(types::SerializeType::kSomeip);
    msg->uuid.high = (peerSerial << 16U) | header.clientId;
    msg->uuid.low = header.sessionId;
    msg->replyRoute = std::move(route);
    {
        std::lock_guard<std::recursive_mutex> lock(handlerMutex_);
        if (handler_) {
            ++requests_;
            handler_(msg);
            return true;
        }
    }
    ReturnLoan(copy);
    refusal = ReturnCode::kNotReady;
    ++refused_;
    return false;
}

bool SomeipMethodHandler::ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                                    const vcc::driver::MethodMsgPtr& msg, bool /*flag*/) {
    return Reply(buffer, size.length, msg, false);
}

bool SomeipMethodHandler::ReplyError(unsigned char* buffer, std::uint64_t size,
                                     const vcc::driver::MethodMsgPtr& msg, bool /*flag*/) {
    return Reply(buffer, size, msg, true);
}

bool SomeipMethodHandler::Reply(unsigned char* buffer, std::uint64_t size,
                                const vcc::driver::MethodMsgPtr& msg, bool error) {
    if (buffer == nullptr) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(bufferMutex_);
        if (buffers_.erase(buffer) == 0) {
            core_->log->LogError("SomeipDriver_ForeignBuffer", LogLimitConfig{})
                << "[SomeipDriver][Reply with a buffer this handler did not allocate][method="
                << methodId_ << "]";
            return false;
        }
    }
    auto route = msg ? std::static_pointer_cast<ReplyRoute>(msg->replyRoute) : nullptr;
    if (route == nullptr) {
        FreeBlock(buffer - kHeaderSize);
        ++failedReplies_;
        core_->log->LogWarn("SomeipDriver_NoRoute", LogLimitConfig{})
            << "[SomeipDriver][Reply without a request route dropped][method=" << methodId_ << "]";
        return false;
    }
    if (route->request.messageType == static_cast<std::uint8_t>(MessageType::kRequestNoReturn)) {
        FreeBlock(buffer - kHeaderSize);
        return true;
    }
    const SomeipHeader header =
        ReplyHeader(route->request, error ? MessageType::kError : MessageType::kResponse,
                    error ? ReturnCode::kNotOk : ReturnCode::kOk, 0);
    OutMessagePtr message = AdoptPayload(buffer, header, size);
    bool sent = true;
    if (!route->tcp && message->size > udpMaxSize_) {
        core_->log->LogWarn("SomeipDriver_UdpReplyTooLarge", LogLimitConfig{})
            << "[SomeipDriver][UDP reply too large, answered E_NOT_OK][method=" << methodId_
            << ", size=" << message->size << ", max=" << udpMaxSize_ << "]";
        message = MakeMessage(
            ReplyHeader(route->request, MessageType::kError, ReturnCode::kNotOk, 0), nullptr, 0);
        sent = false;
    }
    if (route->tcp) {
        auto connection = route->connection.lock();
        if (connection == nullptr || connection->IsClosed()) {
            ++failedReplies_;
            core_->log->LogWarn("SomeipDriver_PeerGone", LogLimitConfig{})
                << "[SomeipDriver][Reply dropped: connection closed][method=" << methodId_ << "]";
            return false;
        }
        // A worker thread writes an idle connection itself instead of waking the I/O thread.
        if (!core_->OnIoThread() && connection->TrySendDirect(message)) {
            ++(error ? errorReplies_ : replies_);
            return true;
        }
    }
    if (core_->OnIoThread()) {
        if (auto endpoint = route->endpoint.lock()) {
            sent = endpoint->SendBack(*route, std::move(message)) && sent;
        } else {
            sent = false;
        }
    } else if (!core_->Post([route, message] {
                   if (auto endpoint = route->endpoint.lock()) {
                       endpoint->SendBack(*route, message);
                   }
               })) {
        sent = false;
    }
    if (!sent) {
        ++failedReplies_;
    } else if (error) {
        ++errorReplies_;
    } else {
        ++replies_;
    }
    return sent;
}

unsigned char* SomeipMethodHandler::AllocateBuffer(const vcc::driver::SizeRecord& size,
                                                   const types::MethodMsg& /*msg*/) {
    unsigned char* buffer = AllocatePayload(size.length, size.filled);
    if (buffer != nullptr) {
        std::lock_guard<std::mutex> lock(bufferMutex_);
        buffers_.insert(buffer);
    }
    return buffer;
}

void SomeipMethodHandler::ReturnLoan(const unsigned char* payload) {
    if (payload == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(bufferMutex_);
    if (loans_.erase(payload) == 0) {
        core_->log->LogWarn("SomeipDriver_UnknownLoan", LogLimitConfig{})
            << "[SomeipDriver][Return of a payload this handler did not lend ignored][method="
            << methodId_ << "]";
        return;
    }
    delete[] payload;
}

void SomeipMethodHandler::SetReceiveHandler(vcc::driver::ReceiveHandler handler) {
    std::lock_guard<std::recursive_mutex> lock(handlerMutex_);
    handler_ = std::move(handler);
}

void SomeipMethodHandler::SetStats(std::shared_ptr<vcc::utils::stats::Stats> stats) {
    std::lock_guard<std::mutex> lock(bufferMutex_);
    stats_ = std::move(stats);
}

ara::core::String SomeipMethodHandler::GetStatisticsText(vcc::driver::DriverType driver) const {
    if (driver != vcc::driver::DriverType::kSomeip) {
        return {};
    }
    std::ostringstream text;
    text << "SOMEIP requests=" << requests_ << " replies=" << replies_
         << " errorReplies=" << errorReplies_ << " failedReplies=" << failedReplies_
         << " refused=" << refused_ << "\n";
    return text.str();
}

// ---- SomeipEventHandler ----

SomeipEventHandler::SomeipEventHandler(std::shared_ptr<Core> core,
                                       std::shared_ptr<ServiceEntry> service, std::uint16_t eventId,
                                       std::uint16_t eventgroupId)
    : core_(std::move(core)),
      service_(std::move(service)),
      eventId_(eventId),
      eventgroupId_(eventgroupId),
      majorVersion_(service_->majorVersion) {}

SomeipEventHandler::~SomeipEventHandler() {
    std::lock_guard<std::mutex> lock(bufferMutex_);
    for (const unsigned char* buffer : buffers_) {
        FreeBlock(buffer - kHeaderSize);
    }
}

unsigned char* SomeipEventHandler::AllocateBuffer(std::uint64_t size) {
    unsigned char* buffer = AllocatePayload(size);
    if (buffer != nullptr) {
        std::lock_guard<std::mutex> lock(bufferMutex_);
        buffers_.insert(buffer);
    }
    return buffer;
}

bool SomeipEventHandler::IsReady() const {
    return !core_->Stopped();
}

bool SomeipEventHandler::SendEvent(unsigned char* buffer, std::uint64_t size,
                                   types::internal::SampleInfoImpl& /*sampleInfo*/) {
    if (buffer == nullptr) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(bufferMutex_);
        if (buffers_.erase(buffer) == 0) {
            core_->log->LogError("SomeipDriver_ForeignBuffer", LogLimitConfig{})
                << "[SomeipDriver][Event with a buffer this handler did not allocate][event="
                << eventId_ << "]";
            return false;
        }
    }
    SomeipHeader header;
    header.serviceId = service_->serviceId;
    header.methodId = eventId_;
    header.clientId = 0;
    std::uint16_t current = session_.load();
    std::uint16_t next = 0;
    do {
        next = current == 0xFFFF ? 1 : static_cast<std::uint16_t>(current + 1);
    } while (!session_.compare_exchange_weak(current, next));
    header.sessionId = next;
    header.interfaceVersion = majorVersion_;
    header.messageType = static_cast<std::uint8_t>(MessageType::kNotification);
    header.returnCode = static_cast<std::uint8_t>(ReturnCode::kOk);
    OutMessagePtr message = AdoptPayload(buffer, header, size);
    auto* core = core_.get();
    auto service = service_;
    const std::uint16_t group = eventgroupId_;
    if (core_->OnIoThread()) {
        core->SendEvent(service, group, message);
        return true;
    }
    return core_->Post(
        [core, service, group, message] { core->SendEvent(service, group, message); });
}

// ---- Core: the server side ----

std::shared_ptr<ServiceEntry> SomeipDriver::Core::ServiceFor(
    const types::SomeipEntityConfig& config, ara::core::String& error) {
    const auto key = std::make_pair(config.serviceId, config.instanceId);
    auto it = services_.find(key);
    if (it != services_.end()) {
        const auto& endpoint = it->second->endpoint;
        if (endpoint->tcpLocal.port() != config.port && config.port != 0) {
            error = "service already served on another port";
            return nullptr;
        }
        return it->second;
    }
    const auto endpointKey = std::make_pair(config.address, config.port);
    auto endpointIt = endpoints_.find(endpointKey);
    std::shared_ptr<ServerEndpoint> endpoint;
    if (endpointIt != endpoints_.end()) {
        endpoint = endpointIt->second;
        if (endpoint->services.count(config.serviceId) != 0) {
            error = "another instance of the service on the same endpoint";
            return nullptr;
        }
    } else {
        endpoint = std::make_shared<ServerEndpoint>(*this, config.address, config.port,
                                                    config.maxMessageSize, config.udpMaxSize);
        if (!endpoint->Open(error)) {
            return nullptr;
        }
    }
    auto sd = ServerSd(config, error);
    if (sd == nullptr) {
        return nullptr;
    }
    if (endpointIt == endpoints_.end()) {
        endpoints_[endpointKey] = endpoint;
        endpoint->Start();
    }
    auto service = std::make_shared<ServiceEntry>();
    service->serviceId = config.serviceId;
    service->instanceId = config.instanceId;
    service->majorVersion = config.majorVersion;
    service->minorVersion = config.minorVersion;
    service->endpoint = endpoint;
    service->sd = sd;
    endpoint->services[config.serviceId] = service;
    services_[key] = service;
    return service;
}

std::shared_ptr<SdSocket> SomeipDriver::Core::ServerSd(const types::SomeipEntityConfig& config,
                                                       ara::core::String& error) {
    const auto key = std::make_pair(config.sdAddress, config.sdPort);
    auto it = serverSd_.find(key);
    if (it != serverSd_.end()) {
        return it->second;
    }
    asio::error_code ec;
    const auto address = asio::ip::make_address(config.sdAddress, ec);
    if (ec) {
        error = "bad SD address " + config.sdAddress;
        return nullptr;
    }
    auto sd = std::make_shared<SdSocket>(*this, udp::endpoint(address, config.sdPort), true,
                                         config.sdMulticast);
    if (!sd->Open(error)) {
        return nullptr;
    }
    serverSd_[key] = sd;
    return sd;
}

bool SomeipDriver::Core::Offer(std::uint16_t serviceId, std::uint16_t instanceId) {
    auto it = services_.find(std::make_pair(serviceId, instanceId));
    if (it == services_.end() || stopped_) {
        log->LogError() << "[SomeipDriver][Offer failed: no handler was created for the service]"
                        << "[service=" << serviceId << ", instance=" << instanceId << "]";
        return false;
    }
    ServiceEntry& service = *it->second;
    if (!service.offered) {
        service.offered = true;
        service.repetition = 0;
        const auto low = options.initialDelayMin.count();
        const auto high = std::max(options.initialDelayMax.count(), low);
        std::uniform_int_distribution<std::int64_t> delay(low, high);
        service.nextOffer = Clock::now() + std::chrono::milliseconds(delay(random_));
        WakeBy(service.nextOffer);
    }
    return true;
}

void SomeipDriver::Core::StopOffer(std::uint16_t serviceId, std::uint16_t instanceId) {
    auto it = services_.find(std::make_pair(serviceId, instanceId));
    if (it == services_.end() || !it->second->offered) {
        return;
    }
    SendOffer(*it->second, nullptr, true);
    it->second->offered = false;
    for (auto& [group, subscribers] : it->second->subscribers) {
        subscribers.clear();
    }
}

SdEntry SomeipDriver::Core::OfferEntry(const ServiceEntry& service, SdMessage& message,
                                       bool stop) const {
    SdEntry entry = MakeEntry(SdEntryType::kOfferService, service.serviceId, service.instanceId,
                              service.majorVersion, stop ? 0 : options.offerTtlSeconds);
    entry.minorVersion = service.minorVersion;
    const auto& endpoint = *service.endpoint;
    entry.index1 = AddEndpointOption(message, AddressBytes(endpoint.tcpLocal.address()),
                                     L4Protocol::kTcp, endpoint.tcpLocal.port());
    AddEndpointOption(message, AddressBytes(endpoint.udpLocal.address()), L4Protocol::kUdp,
                      endpoint.udpLocal.port());
    entry.count1 = 2;
    return entry;
}

void SomeipDriver::Core::SendOffer(ServiceEntry& service, const udp::endpoint* to, bool stop) {
    SdMessage message;
    message.entries.push_back(OfferEntry(service, message, stop));
    if (to != nullptr) {
        service.sd->SendTo(message, *to);
    } else {
        service.sd->SendToAll(message);
    }
}

void SomeipDriver::Core::SendEvent(const std::shared_ptr<ServiceEntry>& service,
                                   std::uint16_t eventgroupId, const OutMessagePtr& message) {
    if (stopped_ || !service->offered) {
        return;
    }
    auto it = service->subscribers.find(eventgroupId);
    if (it == service->subscribers.end()) {
        return;
    }
    for (const Subscriber& subscriber : it->second) {
        if (subscriber.tcp) {
            if (auto connection = subscriber.connection.lock()) {
                connection->Send(message, false);
            }
        } else if (message->size > service->endpoint->udpMaxSize) {
            log->LogWarn("SomeipDriver_UdpEventTooLarge", LogLimitConfig{})
                << "[SomeipDriver][Event too large for UDP, not sent][service="
                << service->serviceId << ", size=" << message->size
                << ", max=" << service->endpoint->udpMaxSize << "]";
        } else {
            service->endpoint->SendUdp(message, subscriber.udpPeer);
        }
    }
}

void SomeipDriver::Core::DropConnectionSubscribers(const Connection* connection) {
    for (auto& [key, service] : services_) {
        for (auto& [group, subscribers] : service->subscribers) {
            subscribers.erase(
                std::remove_if(subscribers.begin(), subscribers.end(),
                               [connection](const Subscriber& s) {
                                   auto live = s.connection.lock();
                                   return s.tcp && (live == nullptr || live.get() == connection);
                               }),
                subscribers.end());
        }
    }
}

void SomeipDriver::Core::TickServer(Clock::time_point now, Clock::time_point& next) {
    for (auto& [key, endpoint] : endpoints_) {
        endpoint->CheckTimeouts(now, next);
    }
    for (auto& [key, service] : services_) {
        if (!service->offered) {
            continue;
        }
        if (now >= service->nextOffer) {
            SendOffer(*service, nullptr, false);
            if (service->repetition < options.repetitionsMax) {
                service->nextOffer =
                    now + options.repetitionBaseDelay * (1U << service->repetition);
                ++service->repetition;
            } else {
                service->nextOffer = now + options.cyclicOfferDelay;
            }
        }
        next = std::min(next, service->nextOffer);
        for (auto& [group, subscribers] : service->subscribers) {
            subscribers.erase(std::remove_if(subscribers.begin(), subscribers.end(),
                                             [now](const Subscriber& s) {
                                                 return !s.forever && now >= s.expiry;
                                             }),
                              subscribers.end());
            for (const Subscriber& s : subscribers) {
                if (!s.forever) {
                    next = std::min(next, s.expiry);
                }
            }
        }
    }
}

void SomeipDriver::Core::HandleSubscribe(SdSocket& socket, const udp::endpoint& from,
                                         const SdMessage& message, const SdEntry& entry,
                                         SdMessage& answer) {
    SdEntry ack = AckOf(entry);
    auto nack = [&](const char* why) {
        log->LogWarn(ara::core::String("SomeipDriver_SubscribeNack_") + why, LogLimitConfig{})
            << "[SomeipDriver][Subscription refused: " << why << "][service=" << entry.serviceId
            << ", instance=" << entry.instanceId << ", eventgroup=" << entry.eventgroupId
            << ", peer=udp " << ToString(from) << "]";
        if (entry.ttl != 0) {
            ack.ttl = 0;
            answer.entries.push_back(ack);
        }
    };
    auto it = services_.find(std::make_pair(entry.serviceId, entry.instanceId));
    ServiceEntry* service = it == services_.end() ? nullptr : it->second.get();
    if (service == nullptr || service->sd.get() != &socket || !service->offered) {
        nack("service not offered here");
        return;
    }
    if (entry.majorVersion != service->majorVersion && entry.majorVersion != kAnyMajor) {
        nack("wrong major version");
        return;
    }
    auto group = service->subscribers.find(entry.eventgroupId);
    if (group == service->subscribers.end()) {
        nack("unknown eventgroup");
        return;
    }
    std::vector<const SdOption*> endpoints;
    if (!EntryOptions(message, entry, endpoints)) {
        nack("option index out of range");
        return;
    }
    const auto now = Clock::now();
    std::vector<Subscriber> found;
    for (const SdOption* option : endpoints) {
        if (option->type != static_cast<std::uint8_t>(SdOptionType::kIpv4Endpoint)) {
            continue;
        }
        Subscriber subscriber;
        subscriber.sdPeer = from;
        subscriber.forever = entry.ttl == kSdTtlForever;
        subscriber.expiry = now + std::chrono::seconds(entry.ttl);
        if (!subscriber.forever) {
            WakeBy(subscriber.expiry);
        }
        const auto address = AddressFromBytes(option->address);
        if (option->protocol == static_cast<std::uint8_t>(L4Protocol::kTcp)) {
            auto connection =
                service->endpoint->FindConnection(tcp::endpoint(address, option->port));
            if (connection == nullptr) {
                if (entry.ttl != 0) {
                    nack("no TCP connection from the subscriber's endpoint");
                    return;
                }
                continue;
            }
            subscriber.tcp = true;
            subscriber.connection = connection;
        } else if (option->protocol == static_cast<std::uint8_t>(L4Protocol::kUdp)) {
            subscriber.tcp = false;
            subscriber.udpPeer = udp::endpoint(address, option->port);
        } else {
            continue;
        }
        found.push_back(subscriber);
    }
    if (found.empty()) {
        nack("no usable endpoint option");
        return;
    }
    auto& subscribers = group->second;
    if (entry.ttl != 0 && subscribers.size() + found.size() > options.maxConnections * 2) {
        nack("too many subscribers");
        return;
    }
    for (const Subscriber& subscriber : found) {
        auto same = std::find_if(subscribers.begin(), subscribers.end(), [&](const Subscriber& s) {
            return s.tcp == subscriber.tcp &&
                   (s.tcp ? s.connection.lock() == subscriber.connection.lock()
                          : s.udpPeer == subscriber.udpPeer);
        });
        if (entry.ttl == 0) {
            if (same != subscribers.end()) {
                subscribers.erase(same);
            }
        } else if (same != subscribers.end()) {
            *same = subscriber;
        } else {
            subscribers.push_back(subscriber);
        }
    }
    if (entry.ttl != 0) {
        answer.entries.push_back(ack);
    }
}

}  // namespace lumo::driver::someip
