#pragma once
// Reading an EDAM reply: the binary protocol (strict, versioned messages, as the service sends
// them) with every size the reply claims bounded by the reply's length. Evernote's client reads
// each answer this way; replyProtocol reads one held in memory.
//
// Thrift checks a container's claimed length against the configured message size, but a
// string's or binary's against nothing unless the protocol is given a limit: without one, a
// reply of a few bytes claiming a 2 GB string makes it allocate the 2 GB before it finds the
// bytes missing.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <thrift/protocol/TBinaryProtocol.h>

namespace vxcloud::evernote {

// No list in a reply is longer than an account's notes can be (100,000).
inline constexpr std::int32_t kMaxReplyListLength = 100'000;

// A strict reader over `transport`; boundReplyReader sets its limits once the reply's size is known.
std::shared_ptr<apache::thrift::protocol::TBinaryProtocol> replyReader(
    std::shared_ptr<apache::thrift::transport::TTransport> transport);

// Nothing in a reply of `replyBytes` bytes can be longer than the reply.
void boundReplyReader(apache::thrift::protocol::TBinaryProtocol& reader, std::size_t replyBytes);

// A protocol reading `body`, which must outlive it.
std::shared_ptr<apache::thrift::protocol::TProtocol> replyProtocol(std::string_view body);

}  // namespace vxcloud::evernote
