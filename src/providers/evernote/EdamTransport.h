#pragma once
// A Thrift transport that carries each call's message as the body of an HTTPS POST over the
// shared request path, so Evernote's requests have the same retries, TLS, time limits and
// redacted log as every other provider's. A failed request throws TTransportException with
// the request's ProviderError kept for the client to report. Includes Thrift headers: only the
// Evernote client's sources include it.
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TVirtualTransport.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "../ProviderCaller.h"

namespace vxcloud::evernote {

class EdamTransport : public apache::thrift::transport::TVirtualTransport<EdamTransport> {
public:
    EdamTransport(const providers::ProviderCaller& caller, std::string url);

    // Names the next call and says whether it may be sent again after a failure that may
    // have reached the service (reads may; creates may not).
    void prepare(std::string what, bool idempotent);

    uint32_t read(uint8_t* buf, uint32_t len);
    void write(const uint8_t* buf, uint32_t len);
    void flush() override;
    bool isOpen() const override { return true; }

    // Told each reply's size before it is read, so the reader can bound what the reply claims.
    void onReply(std::function<void(std::size_t)> sized) { onReply_ = std::move(sized); }

    // The failure of the last request, when it failed below Thrift.
    const std::optional<ProviderError>& lastError() const { return lastError_; }

private:
    const providers::ProviderCaller& caller_;
    std::string url_;
    std::string what_ = "edam";
    bool idempotent_ = true;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> outgoing_;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> incoming_;
    std::optional<ProviderError> lastError_;
    std::function<void(std::size_t)> onReply_;
};

}  // namespace vxcloud::evernote
