#include "evernote/ThriftCalls.h"

#include <thrift/TApplicationException.h>
#include <thrift/TProcessor.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include <climits>

namespace vxcloud::sandbox::evernote {
namespace {

using apache::thrift::TConfiguration;
using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::transport::TMemoryBuffer;

// Notes up to the largest allowed size must fit; Thrift's default cap is 100 MiB.
std::shared_ptr<TConfiguration> configuration() {
    static const auto config = std::make_shared<TConfiguration>(INT_MAX, INT_MAX, INT_MAX);
    return config;
}

std::shared_ptr<TMemoryBuffer> reading(std::string_view bytes) {
    auto* data = reinterpret_cast<uint8_t*>(const_cast<char*>(bytes.data()));
    return std::make_shared<TMemoryBuffer>(data, static_cast<uint32_t>(bytes.size()), TMemoryBuffer::OBSERVE,
                                           configuration());
}

// Strict on reading too: the service takes only versioned message headers.
std::shared_ptr<TBinaryProtocol> protocol(std::shared_ptr<TMemoryBuffer> buffer) {
    return std::make_shared<TBinaryProtocol>(buffer, 0, 0, true, true);
}

}  // namespace

void answerNotThrift(Response& response) { response.text(400, "Bad Request\n"); }

void answerThrift(apache::thrift::TProcessor& processor, const Request& request, Response& response) {
    if (request.method != "POST" || request.body.empty() || request.body.size() > UINT32_MAX) {
        return answerNotThrift(response);
    }
    auto out = std::make_shared<TMemoryBuffer>(configuration());
    try {
        if (!processor.process(protocol(reading(request.body.view())), protocol(out), nullptr)) {
            return answerNotThrift(response);
        }
    } catch (const apache::thrift::TException&) {
        return answerNotThrift(response);  // not a message, or a call cut short
    }
    response.bytes(200, ByteBuffer::adopt(out->getBufferAsString()), "application/x-thrift");
}

std::optional<std::string> thriftMethod(std::string_view body, bool complete) {
    if (body.empty()) return complete ? std::optional<std::string>("") : std::nullopt;
    try {
        std::string name;
        apache::thrift::protocol::TMessageType type;
        int32_t seqid = 0;
        protocol(reading(body))->readMessageBegin(name, type, seqid);
        return type == apache::thrift::protocol::T_CALL ? name : std::string();
    } catch (const apache::thrift::transport::TTransportException&) {
        // The header is not all in yet.
        return complete ? std::optional<std::string>("") : std::nullopt;
    } catch (const apache::thrift::TException&) {
        return std::string();
    }
}

std::optional<std::string> firstStringArgument(std::string_view body) {
    try {
        auto in = protocol(reading(body));
        std::string name;
        apache::thrift::protocol::TMessageType type;
        int32_t seqid = 0;
        in->readMessageBegin(name, type, seqid);
        in->readStructBegin(name);
        apache::thrift::protocol::TType fieldType;
        int16_t id = 0;
        in->readFieldBegin(name, fieldType, id);
        if (id != 1 || fieldType != apache::thrift::protocol::T_STRING) return std::nullopt;
        std::string value;
        in->readString(value);
        return value;
    } catch (const apache::thrift::TException&) {
        return std::nullopt;
    }
}

}  // namespace vxcloud::sandbox::evernote
