#pragma once
// Reading an EDAM reply: the binary protocol (strict, versioned messages, as the service sends
// them) over the reply's body, held whole in memory, with every size the reply claims bounded
// by that body. Evernote's client reads each answer through this.
//
// Thrift checks a container's claimed length against the configured message size, but a
// string's or binary's against nothing unless the protocol is given a limit: without one, a
// reply of a few bytes claiming a 2 GB string makes it allocate the 2 GB before it finds the
// bytes missing.
#include <cstdint>
#include <memory>
#include <string_view>

#include <thrift/protocol/TProtocol.h>

namespace vxcloud::evernote {

// No list in a reply is longer than an account's notes can be (100,000).
inline constexpr std::int32_t kMaxReplyListLength = 100'000;

// A protocol reading `body`, which must outlive it.
std::shared_ptr<apache::thrift::protocol::TProtocol> replyProtocol(std::string_view body);

}  // namespace vxcloud::evernote
