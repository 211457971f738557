// SOME/IP-SD sockets: sessions and reboot flags per peer, and the dispatch of entries to the
// server and client sides.

#include "platform/driver/someip/someip_core.h"

namespace lumo::driver::someip {

using ara::tessel::common::log::LogLimitConfig;

namespace {

constexpr std::size_t kSdBufferSize = std::size_t{64} * 1024;

}  // namespace

SdSocket::SdSocket(Core& core, udp::endpoint local, bool reuseAddress,
                   const ara::core::String& group)
    : core_(core),
      local_(std::move(local)),
      reuse_(reuseAddress),
      socket_(core.io),
      buffer_(kSdBufferSize) {
    asio::error_code ec;
    if (!group.empty()) {
        const auto address = asio::ip::make_address(group, ec);
        if (!ec && address.is_multicast()) {
            hasGroup_ = true;
            group_ = udp::endpoint(address, local_.port());
        }
    }
}

bool SdSocket::Open(ara::core::String& error) {
    asio::error_code ec;
    socket_.open(local_.protocol(), ec);
    if (!ec && reuse_) {
        socket_.set_option(udp::socket::reuse_address(true), ec);
    }
    if (!ec) {
        socket_.bind(local_, ec);
    }
    if (ec) {
        error = "SD " + ToString(local_) + ": " + ec.message();
        return false;
    }
    local_ = socket_.local_endpoint(ec);
    // Sends go out at once or are dropped: SD repeats itself, and the I/O thread never waits.
    socket_.non_blocking(true, ec);
    if (hasGroup_) {
        // Offers leave through the SD address's interface and come back to local listeners.
        socket_.set_option(asio::ip::multicast::outbound_interface(local_.address().to_v4()), ec);
        socket_.set_option(asio::ip::multicast::enable_loopback(true), ec);
        asio::error_code joinError;
        socket_.set_option(
            asio::ip::multicast::join_group(group_.address().to_v4(), local_.address().to_v4()),
            joinError);
        if (joinError) {
            core_.log->LogWarn() << "[SomeipDriver][SD multicast group not joined][group="
                                 << ToString(group_) << "][" << joinError.message() << "]";
        }
    }
    Receive();
    return true;
}

void SdSocket::Close() {
    asio::error_code ignored;
    socket_.close(ignored);
}

std::uint16_t SdSocket::NextSession(std::uint16_t& session, bool& wrapped) {
    if (session == 0xFFFF) {
        session = 1;
        wrapped = true;
    } else {
        ++session;
    }
    return session;
}

void SdSocket::SendRaw(const std::vector<unsigned char>& bytes, const udp::endpoint& to) {
    if (!socket_.is_open()) {
        return;
    }
    asio::error_code ec;
    socket_.send_to(asio::buffer(bytes), to, 0, ec);
    if (ec) {
        core_.log->LogWarn("SomeipDriver_SdSend", LogLimitConfig{})
            << "[SomeipDriver][SD message not sent][peer=udp " << ToString(to) << "]["
            << ec.message() << "]";
    }
}

void SdSocket::SendTo(const SdMessage& message, const udp::endpoint& peer) {
    PeerState& state = peers_[peer];
    const std::uint16_t session = NextSession(state.sendSession, state.sendWrapped);
    SdMessage copy = message;
    copy.flags =
        static_cast<std::uint8_t>(kSdFlagUnicast | (state.sendWrapped ? 0 : kSdFlagReboot));
    SendRaw(EncodeSdMessage(copy, session), peer);
}

void SdSocket::SendToAll(const SdMessage& message) {
    if (hasGroup_) {
        const std::uint16_t session = NextSession(groupSession_, groupWrapped_);
        SdMessage copy = message;
        copy.flags =
            static_cast<std::uint8_t>(kSdFlagUnicast | (groupWrapped_ ? 0 : kSdFlagReboot));
        SendRaw(EncodeSdMessage(copy, session), group_);
    }
    // Peers that found us by unicast hear it by unicast too: they need not be in the group.
    for (auto& [peer, state] : peers_) {
        if (state.known) {
            SendTo(message, peer);
        }
    }
}

void SdSocket::RememberPeer(const udp::endpoint& peer) {
    PeerState& state = peers_[peer];
    state.known = true;
    state.lastHeard = Clock::now();
    std::size_t known = 0;
    auto oldest = peers_.end();
    for (auto it = peers_.begin(); it != peers_.end(); ++it) {
        if (!it->second.known) {
            continue;
        }
        ++known;
        if (oldest == peers_.end() || it->second.lastHeard < oldest->second.lastHeard) {
            oldest = it;
        }
    }
    if (known > core_.options.maxSdPeers && oldest != peers_.end()) {
        peers_.erase(oldest);
    }
}

void SdSocket::MakeRoomForPeer() {
    // Senders are tracked for their sessions; a flood of sources must not grow the table.
    const std::size_t limit = core_.options.maxSdPeers * 4;
    if (peers_.size() < limit) {
        return;
    }
    auto oldest = peers_.begin();
    for (auto it = peers_.begin(); it != peers_.end(); ++it) {
        if (it->second.lastHeard < oldest->second.lastHeard) {
            oldest = it;
        }
    }
    core_.log->LogWarn("SomeipDriver_SdPeers", LogLimitConfig{})
        << "[SomeipDriver][Too many SD peers, the one heard least recently is forgotten][peer=udp "
        << ToString(oldest->first) << "]";
    peers_.erase(oldest);
}

void SdSocket::Receive() {
    auto self = shared_from_this();
    socket_.async_receive_from(
        asio::buffer(buffer_), from_,
        [this, self](const asio::error_code& error, std::size_t count) {
            if (error == asio::error::operation_aborted || !socket_.is_open()) {
                return;
            }
            if (!error && from_ != local_) {  // our own multicast comes back: not a peer
                Handle(count);
            }
            Receive();
        });
}

void SdSocket::Handle(std::size_t count) {
    DatagramReader reader(buffer_.data(), count);
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
    SomeipHeader header;
    for (;;) {
        const FrameStatus status = reader.Next(bytes, size, header);
        if (status == FrameStatus::kNeedMore) {
            return;
        }
        if (status != FrameStatus::kMessage || header.serviceId != kSdServiceId ||
            header.methodId != kSdMethodId) {
            core_.log->LogWarn("SomeipDriver_BadSdDatagram", LogLimitConfig{})
                << "[SomeipDriver][SD datagram dropped: "
                << (status != FrameStatus::kMessage ? FrameStatusName(status) : "not an SD message")
                << "][peer=udp " << ToString(from_) << ", bytes=" << count << "]";
            return;
        }
        SdMessage message;
        const SdStatus sdStatus = DecodeSdPayload(bytes + kHeaderSize, size - kHeaderSize, message);
        if (sdStatus != SdStatus::kOk) {
            core_.log->LogWarn("SomeipDriver_BadSdMessage", LogLimitConfig{})
                << "[SomeipDriver][SD message dropped: " << SdStatusName(sdStatus) << "][peer=udp "
                << ToString(from_) << ", bytes=" << size << "]";
            return;
        }
        // A reboot flag that newly appears, or stays while the session does not grow, means the
        // peer started again.
        if (peers_.count(from_) == 0) {
            MakeRoomForPeer();
        }
        PeerState& state = peers_[from_];
        const bool reboot = (message.flags & kSdFlagReboot) != 0;
        const bool rebooted =
            state.heard && reboot && (!state.lastReboot || header.sessionId <= state.lastSession);
        state.heard = true;
        state.lastHeard = Clock::now();
        state.lastReboot = reboot;
        state.lastSession = header.sessionId;
        const udp::endpoint from = from_;
        core_.OnSdMessage(*this, from, message, rebooted);
    }
}

void SomeipDriver::Core::OnSdMessage(SdSocket& socket, const udp::endpoint& from,
                                     const SdMessage& message, bool rebooted) {
    if (stopped_) {
        return;
    }
    if (rebooted) {
        log->LogInfo() << "[SomeipDriver][SD peer restarted][peer=udp " << ToString(from) << "]";
        for (auto& [key, service] : services_) {
            for (auto& [group, subscribers] : service->subscribers) {
                subscribers.erase(
                    std::remove_if(subscribers.begin(), subscribers.end(),
                                   [&from](const Subscriber& s) { return s.sdPeer == from; }),
                    subscribers.end());
            }
        }
        for (auto& [key, remote] : remotes_) {
            if (remote->available && remote->offerSource == from) {
                MakeUnavailable(*remote, "server restarted", true);
            }
        }
    }
    SdMessage answer;
    bool talked = false;
    for (const SdEntry& entry : message.entries) {
        switch (static_cast<SdEntryType>(entry.type)) {
            case SdEntryType::kFindService:
                talked = true;
                for (auto& [key, service] : services_) {
                    if (service->sd.get() == &socket && service->offered &&
                        (entry.serviceId == service->serviceId || entry.serviceId == 0xFFFF) &&
                        (entry.instanceId == service->instanceId ||
                         entry.instanceId == kAnyInstance) &&
                        (entry.majorVersion == service->majorVersion ||
                         entry.majorVersion == kAnyMajor) &&
                        (entry.minorVersion == service->minorVersion ||
                         entry.minorVersion == kAnyMinor)) {
                        answer.entries.push_back(OfferEntry(*service, answer, false));
                    }
                }
                break;
            case SdEntryType::kOfferService:
                HandleOffer(from, message, entry);
                break;
            case SdEntryType::kSubscribeEventgroup:
                talked = true;
                HandleSubscribe(socket, from, message, entry, answer);
                break;
            case SdEntryType::kSubscribeEventgroupAck:
                HandleAck(entry);
                break;
            default:
                break;
        }
    }
    if (talked) {
        socket.RememberPeer(from);
    }
    if (!answer.entries.empty()) {
        socket.SendTo(answer, from);
    }
}

}  // namespace lumo::driver::someip
