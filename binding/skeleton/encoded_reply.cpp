#include "binding/skeleton/encoded_reply.h"

#include <utility>

namespace lumo::vcc {

namespace {
thread_local detail::EncodedReplyScope* current = nullptr;
}  // namespace

const serialize::SerializeConfig* PlainSomeipReplyConfig() {
    return current == nullptr ? nullptr : current->config_;
}

void ReplyEncoded(std::unique_ptr<EncodedReply> reply) {
    if (current != nullptr && current->config_ != nullptr) {
        current->reply_ = std::move(reply);
    }
}

namespace detail {

EncodedReplyScope::EncodedReplyScope(const serialize::SerializeConfig* config)
    : config_(config), outer_(current) {
    current = this;
}

EncodedReplyScope::~EncodedReplyScope() {
    current = outer_;
}

}  // namespace detail

}  // namespace lumo::vcc
