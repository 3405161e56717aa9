#include "providers/evernote/EdamReply.h"

#include <algorithm>
#include <limits>
#include <thrift/TConfiguration.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

namespace vxcloud::evernote {

using apache::thrift::TConfiguration;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;

std::shared_ptr<apache::thrift::protocol::TProtocol> replyProtocol(std::string_view body) {
    // Nothing in the reply can be longer than the reply. Thrift reads 0 as "no limit", hence 1.
    const auto size = static_cast<std::int32_t>(
        std::clamp<std::size_t>(body.size(), 1, std::numeric_limits<std::int32_t>::max()));
    auto config = std::make_shared<TConfiguration>(size);
    // Observed, never written: the buffer only reads.
    auto buffer = std::make_shared<TMemoryBuffer>(reinterpret_cast<std::uint8_t*>(const_cast<char*>(body.data())),
                                                  static_cast<std::uint32_t>(body.size()), TMemoryBuffer::OBSERVE,
                                                  std::move(config));
    return std::make_shared<TBinaryProtocol>(std::move(buffer), size, std::min(size, kMaxReplyListLength),
                                             /*strict_read=*/true, /*strict_write=*/true);
}

}  // namespace vxcloud::evernote
