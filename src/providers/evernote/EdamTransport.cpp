#include "EdamTransport.h"

#include <thrift/TConfiguration.h>
#include <thrift/transport/TTransportException.h>

namespace vxcloud::evernote {

using apache::thrift::TConfiguration;
using apache::thrift::transport::TMemoryBuffer;
using apache::thrift::transport::TTransportException;

namespace {

// A premium note may carry 200 MiB of resources; Thrift's default cap is 100 MiB.
constexpr int kMaxMessageBytes = 256 * 1024 * 1024;

std::shared_ptr<TConfiguration> configuration() {
    return std::make_shared<TConfiguration>(kMaxMessageBytes, kMaxMessageBytes);
}

}  // namespace

EdamTransport::EdamTransport(const providers::ProviderCaller& caller, std::string url)
    : TVirtualTransport(configuration()),
      caller_(caller),
      url_(std::move(url)),
      outgoing_(std::make_shared<TMemoryBuffer>(configuration())),
      incoming_(std::make_shared<TMemoryBuffer>(configuration())) {}

void EdamTransport::prepare(std::string what, bool idempotent) {
    what_ = std::move(what);
    idempotent_ = idempotent;
    lastError_.reset();
}

uint32_t EdamTransport::read(uint8_t* buf, uint32_t len) { return incoming_->read(buf, len); }

void EdamTransport::write(const uint8_t* buf, uint32_t len) { outgoing_->write(buf, len); }

void EdamTransport::flush() {
    providers::ApiRequest request;
    request.what = what_;
    request.method = "POST";
    request.url = url_;
    // The token travels inside the call, never in a header.
    request.authorized = false;
    request.idempotent = idempotent_;
    request.headers.set("Content-Type", "application/x-thrift");
    request.headers.set("Accept", "application/x-thrift");
    request.body = ByteBuffer::adopt(outgoing_->getBufferAsString());
    outgoing_->resetBuffer();
    auto sent = caller_.send(request);
    if (!sent.ok()) {
        lastError_ = sent.error();
        throw TTransportException(TTransportException::UNKNOWN, what_ + " failed");
    }
    std::string body = std::move(sent.value().body);
    if (onReply_) onReply_(body.size());
    // A fresh buffer per answer: a reused one would count every answer against one size cap.
    incoming_ = std::make_shared<TMemoryBuffer>(reinterpret_cast<uint8_t*>(body.data()),
                                                static_cast<uint32_t>(body.size()), TMemoryBuffer::COPY, configuration());
}

}  // namespace vxcloud::evernote
