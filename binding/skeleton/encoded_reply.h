#ifndef BINDING_SKELETON_ENCODED_REPLY_H
#define BINDING_SKELETON_ENCODED_REPLY_H

// A reply that the user method writes in its wire form itself, instead of returning its Output
// for the skeleton to serialize: for an answer kept in a form that encodes faster than its
// Output is built (a registry's packed records, ten thousand of them). Only for SOME/IP under
// plain widths, where a value's bytes follow from its type alone.

#include <cstdint>
#include <memory>

#include "platform/serialize/serialize_config.h"

namespace lumo::vcc {

class EncodedReply {
public:
    EncodedReply() = default;
    EncodedReply(const EncodedReply&) = delete;
    EncodedReply& operator=(const EncodedReply&) = delete;
    virtual ~EncodedReply() = default;

    // Bytes of the payload; above serialize::kSizeMax when it cannot be written.
    virtual std::uint64_t Size() = 0;
    // Writes the Size() bytes at out, and nothing past them; false when it could not, and the
    // reply does not go out.
    virtual bool Write(unsigned char* out) = 0;
};

// While a user method runs for a request whose reply goes out over SOME/IP under plain widths
// (4-byte length fields, no structure length, no configuration node): the reply's
// configuration. Null otherwise: in-process and DDS replies, and outside a user method.
const serialize::SerializeConfig* PlainSomeipReplyConfig();

// The reply's payload instead of the Output that the running user method returns, which is
// then dropped. Ignored where PlainSomeipReplyConfig() is null.
void ReplyEncoded(std::unique_ptr<EncodedReply> reply);

namespace detail {

// Set by the method skeleton around its call of a user method. A user method may serve another
// request on its thread (an in-process call run by its caller), so a scope restores the one
// around it.
class EncodedReplyScope {
public:
    explicit EncodedReplyScope(const serialize::SerializeConfig* config);
    EncodedReplyScope(const EncodedReplyScope&) = delete;
    EncodedReplyScope& operator=(const EncodedReplyScope&) = delete;
    ~EncodedReplyScope();

    // The reply the user method gave, if any.
    std::unique_ptr<EncodedReply> Take() { return std::move(reply_); }

private:
    friend const serialize::SerializeConfig* lumo::vcc::PlainSomeipReplyConfig();
    friend void lumo::vcc::ReplyEncoded(std::unique_ptr<EncodedReply> reply);

    const serialize::SerializeConfig* config_;
    std::unique_ptr<EncodedReply> reply_;
    EncodedReplyScope* outer_;
};

}  // namespace detail

}  // namespace lumo::vcc

#endif
