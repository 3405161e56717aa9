#pragma once
// The sandbox's Evernote emulator spoken to as its clients speak to Evernote: Thrift through
// the generated EDAM clients, over a small transport that POSTs each call with the wire
// client and keeps the answer's status and Content-Type for the tests to look at.
#include <openssl/evp.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TVirtualTransport.h>

#include <functional>
#include <memory>
#include <string>

#include "NoteStore.h"
#include "UserStore.h"
#include "sandbox/WireTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::sandbox::test {

namespace edam = ::evernote::edam;

// One HTTP POST per Thrift message, as THttpClient does; a status other than 200 is a
// transport error, as it is for Thrift's own HTTP client.
class WireTransport : public apache::thrift::transport::TVirtualTransport<WireTransport> {
public:
    WireTransport(httplib::Client& client, std::string path) : client_(client), path_(std::move(path)) {}

    bool isOpen() const override { return true; }
    uint32_t read(uint8_t* buf, uint32_t len) { return answer_->read(buf, len); }
    void write(const uint8_t* buf, uint32_t len) { request_.append(reinterpret_cast<const char*>(buf), len); }
    void flush() override {
        httplib::Headers headers = {{"Accept", "application/x-thrift"}};
        if (!fault.empty()) headers.emplace("X-Sandbox-Fault", fault);
        const auto result = client_.Post(path_.c_str(), headers, request_, "application/x-thrift");
        request_.clear();
        if (!result) throw apache::thrift::transport::TTransportException("no answer");
        status = result->status;
        contentType = result->get_header_value("Content-Type");
        body_ = result->body;
        answer_ = std::make_shared<apache::thrift::transport::TMemoryBuffer>(reinterpret_cast<uint8_t*>(body_.data()),
                                                                             static_cast<uint32_t>(body_.size()));
        if (status != 200)
            throw apache::thrift::transport::TTransportException("Bad Status: " + std::to_string(status));
    }

    std::string fault;  // an X-Sandbox-Fault header for the calls that follow
    int status = 0;
    std::string contentType;

private:
    httplib::Client& client_;
    std::string path_;
    std::string request_;
    std::string body_;
    std::shared_ptr<apache::thrift::transport::TMemoryBuffer> answer_ =
        std::make_shared<apache::thrift::transport::TMemoryBuffer>();
};

template <class Client>
struct EdamService {
    std::shared_ptr<WireTransport> transport;
    std::shared_ptr<Client> client;
    Client* operator->() const { return client.get(); }
};

class EvernoteWireTest : public WireTest {
protected:
    void SetUp() override {
        WireTest::SetUp();
        if (HasFatalFailure()) return;
        const auto all = sandbox.accounts("evernote");
        ASSERT_EQ(all.size(), 2u);
        ada = all[0];
        grace = all[1];
        userStore = userStoreOver();
        noteStore = noteStoreOver("s1");
    }

    template <class Client>
    EdamService<Client> over(const std::string& path) {
        EdamService<Client> service;
        service.transport = std::make_shared<WireTransport>(*client, path);
        service.client =
            std::make_shared<Client>(std::make_shared<apache::thrift::protocol::TBinaryProtocol>(service.transport));
        return service;
    }
    EdamService<edam::UserStoreClient> userStoreOver() { return over<edam::UserStoreClient>("/evernote/edam/user"); }
    EdamService<edam::NoteStoreClient> noteStoreOver(const std::string& shard) {
        return over<edam::NoteStoreClient>("/evernote/shard/" + shard + "/notestore");
    }

    static std::string md5Raw(const std::string& bytes) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr);
        return std::string(reinterpret_cast<const char*>(digest), length);
    }
    static std::string hex(const std::string& raw) {
        static const char* digits = "0123456789abcdef";
        std::string out;
        for (const unsigned char c : raw) out += {digits[c >> 4], digits[c & 15]};
        return out;
    }
    static std::string enml(const std::string& body) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml2.dtd\">\n<en-note>" +
               body + "</en-note>";
    }
    static std::string media(const std::string& bytes, const std::string& mime = "application/pdf") {
        return "<en-media type=\"" + mime + "\" hash=\"" + hex(md5Raw(bytes)) + "\"/>";
    }
    // A resource as clients send one: the body with its MD5 and size.
    static edam::Resource resource(const std::string& bytes, const std::string& mime = "application/pdf",
                                   const std::string& fileName = "scan.pdf") {
        edam::Resource r;
        edam::Data data;
        data.__set_body(bytes);
        data.__set_bodyHash(md5Raw(bytes));
        data.__set_size(static_cast<int32_t>(bytes.size()));
        r.__set_data(data);
        r.__set_mime(mime);
        edam::ResourceAttributes attributes;
        attributes.__set_fileName(fileName);
        r.__set_attributes(attributes);
        return r;
    }
    // A note with one resource per body, each shown by an en-media.
    static edam::Note note(const std::string& title, const std::vector<std::string>& bodies = {},
                           const std::string& notebookGuid = {}) {
        edam::Note n;
        n.__set_title(title);
        std::string shown = "<div>" + title + "</div>";
        std::vector<edam::Resource> resources;
        for (const auto& body : bodies) {
            shown += media(body);
            resources.push_back(resource(body));
        }
        n.__set_content(enml(shown));
        if (!resources.empty()) n.__set_resources(resources);
        if (!notebookGuid.empty()) n.__set_notebookGuid(notebookGuid);
        return n;
    }
    edam::Note create(const edam::Note& n, const std::string& token = {}) {
        edam::Note made;
        noteStore->createNote(made, token.empty() ? ada.accessToken : token, n);
        return made;
    }

    // The EDAMUserException `call` throws, or a failure.
    static edam::EDAMUserException userError(const std::function<void()>& call) {
        try {
            call();
        } catch (const edam::EDAMUserException& e) {
            return e;
        } catch (const std::exception& e) {
            ADD_FAILURE() << "expected an EDAMUserException, got " << e.what();
            return {};
        }
        ADD_FAILURE() << "expected an EDAMUserException, the call succeeded";
        return {};
    }
    static void expectUserError(const std::function<void()>& call, edam::EDAMErrorCode::type code,
                                const std::string& parameter) {
        const auto e = userError(call);
        EXPECT_EQ(e.errorCode, code) << e.parameter;
        EXPECT_EQ(e.parameter, parameter);
    }

    SandboxAccount ada, grace;
    EdamService<edam::UserStoreClient> userStore;
    EdamService<edam::NoteStoreClient> noteStore;
};

}  // namespace vxcloud::sandbox::test
