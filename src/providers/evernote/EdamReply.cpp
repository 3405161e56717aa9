#include "providers/evernote/EdamReply.h"

#include <algorithm>
#include <limits>
#include <thrift/TConfiguration.h>
#include <thrift/transport/TBufferTransports.h>

namespace vxcloud::evernote {

using apache::thrift::TConfiguration;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;

namespace {

// Thrift reads a limit of 0 as "no limit", hence at least 1.
std::int32_t limitFor(std::size_t replyBytes) {
    return static_cast<std::int32_t>(std::clamp<std::size_t>(replyBytes, 1, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

std::shared_ptr<TBinaryProtocol> replyReader(std::shared_ptr<apache::thrift::transport::TTransport> transport) {
    // Until the reply arrives nothing may be read: the smallest limits.
    return std::make_shared<TBinaryProtocol>(std::move(transport), 1, 1, /*strict_read=*/true, /*strict_write=*/true);
}

void boundReplyReader(TBinaryProtocol& reader, std::size_t replyBytes) {
    const auto size = limitFor(replyBytes);
    reader.setStringSizeLimit(size);
    reader.setContainerSizeLimit(std::min(size, kMaxReplyListLength));
}

std::shared_ptr<apache::thrift::protocol::TProtocol> replyProtocol(std::string_view body) {
    const auto size = limitFor(body.size());
    // Observed, never written: the buffer only reads.
    auto buffer = std::make_shared<TMemoryBuffer>(reinterpret_cast<std::uint8_t*>(const_cast<char*>(body.data())),
                                                  static_cast<std::uint32_t>(body.size()), TMemoryBuffer::OBSERVE,
                                                  std::make_shared<TConfiguration>(size));
    auto reader = replyReader(std::move(buffer));
    boundReplyReader(*reader, body.size());
    return reader;
}

}  // namespace vxcloud::evernote
