// Reading EDAM replies through the library's reply protocol: whole replies as the service
// writes them, and replies whose claimed sizes exceed what they hold, which are refused before
// anything of that size is allocated.
#include <gtest/gtest.h>

#include <string>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>

#include "../../src/providers/evernote/EdamReply.h"
#include "../../src/providers/evernote/EvernoteClient.h"
#include "../support/LoopbackServer.h"
#include "NoteStore.h"

namespace vxcloud::testing {
namespace {

using apache::thrift::protocol::TBinaryProtocol;
using apache::thrift::protocol::TProtocolException;
using apache::thrift::transport::TMemoryBuffer;

// A createNote reply as the service sends it: a strict REPLY message around the result struct.
std::string createNoteReply(const ::evernote::edam::NoteStore_createNote_result& result) {
    auto buffer = std::make_shared<TMemoryBuffer>();
    TBinaryProtocol out(buffer);
    out.writeMessageBegin("createNote", apache::thrift::protocol::T_REPLY, 0);
    result.write(&out);
    out.writeMessageEnd();
    return buffer->getBufferAsString();
}

// A reply whose message header names `createNote` and whose body is `rest`.
std::string replyHeaderThen(const std::string& rest) {
    return std::string("\x80\x01\x00\x02", 4) + std::string("\x00\x00\x00\x0a", 4) + "createNote" +
           std::string(4, '\0') + rest;
}

TProtocolException::TProtocolExceptionType refusal(const std::string& reply) {
    ::evernote::edam::NoteStoreClient client(evernote::replyProtocol(reply));
    ::evernote::edam::Note note;
    try {
        client.recv_createNote(note);
    } catch (const TProtocolException& e) {
        return e.getType();
    }
    ADD_FAILURE() << "the reply was read";
    return TProtocolException::UNKNOWN;
}

TEST(EvernoteWire, RepliesReadBackWithTheirResultOrException) {
    ::evernote::edam::NoteStore_createNote_result created;
    created.success.__set_title("Scan 1.pdf");
    created.success.__set_tagGuids({"t1", "t2"});
    created.__isset.success = true;
    const std::string reply = createNoteReply(created);
    ::evernote::edam::Note note;
    ::evernote::edam::NoteStoreClient(evernote::replyProtocol(reply)).recv_createNote(note);
    EXPECT_EQ(note.title, "Scan 1.pdf");
    EXPECT_EQ(note.tagGuids, (std::vector<std::string>{"t1", "t2"}));

    ::evernote::edam::NoteStore_createNote_result refused;
    refused.userException.errorCode = ::evernote::edam::EDAMErrorCode::QUOTA_REACHED;
    refused.userException.__set_parameter("Accounting.uploadLimit");
    refused.__isset.userException = true;
    const std::string failure = createNoteReply(refused);
    try {
        ::evernote::edam::NoteStoreClient(evernote::replyProtocol(failure)).recv_createNote(note);
        ADD_FAILURE() << "no exception";
    } catch (const ::evernote::edam::EDAMUserException& e) {
        EXPECT_EQ(e.errorCode, ::evernote::edam::EDAMErrorCode::QUOTA_REACHED);
        EXPECT_EQ(e.parameter, "Accounting.uploadLimit");
    }
}

TEST(EvernoteWire, ClaimedSizesBeyondTheReplyAreRefusedUnread) {
    // A message name of 2 GB in an unversioned header (which the service never sends), a
    // name of 2 GB in a versioned one, and a note's tag list of a million entries.
    EXPECT_EQ(refusal(std::string("\x7f\xff\xff\xf0", 4) + "createNote"), TProtocolException::BAD_VERSION);
    EXPECT_EQ(refusal(std::string("\x80\x01\x00\x02\x7f\xff\xff\xf0", 8) + "createNote"),
              TProtocolException::SIZE_LIMIT);
    // Field 0 (success): a Note; its field 12 (tagGuids): a list of strings.
    const std::string millionTags = std::string("\x0c\x00\x00", 3) + std::string("\x0f\x00\x0c", 3) +
                                    std::string("\x0b\x00\x0f\x42\x40", 5) + "t1";
    EXPECT_EQ(refusal(replyHeaderThen(millionTags)), TProtocolException::SIZE_LIMIT);
    // Within the reply's own size but above any list a reply holds.
    const std::string padded = replyHeaderThen(millionTags) + std::string(2'000'000, '\0');
    EXPECT_EQ(refusal(padded), TProtocolException::SIZE_LIMIT);
    EXPECT_LT(evernote::kMaxReplyListLength, 1'000'000);
}

TEST(EvernoteWire, TheClientRefusesRepliesClaimingMoreThanTheyHold) {
    // listNotebooks answered with a notebook whose guid claims 2 GB, then a list of 2^31
    // notebooks: each is a malformed answer, read without allocating what it claims.
    const std::string header = std::string("\x80\x01\x00\x02", 4) + std::string("\x00\x00\x00\x0d", 4) +
                               "listNotebooks" + std::string(4, '\0');
    const std::string hugeGuid = std::string("\x0f\x00\x00\x0c\x00\x00\x00\x01", 8) +
                                 std::string("\x0b\x00\x01\x7f\xff\xff\xf0", 7) + "abc";
    const std::string hugeList = std::string("\x0f\x00\x00\x0c\x7f\xff\xff\xf0", 8);
    std::vector<std::string> replies{header + hugeGuid, header + hugeList};
    std::size_t served = 0;
    test::LoopbackServer server([&](httplib::Server& s) {
        s.Post("/shard", [&](const httplib::Request&, httplib::Response& res) {
            res.set_content(replies.at(std::min(served++, replies.size() - 1)), "application/x-thrift");
        });
    });
    ASSERT_TRUE(server.running());
    auto client = evernote::EvernoteClient::withGrantedToken("S=s1:U=1:E=1", server.url("/shard"));
    ASSERT_TRUE(client);
    for (std::size_t i = 0; i < replies.size(); ++i) {
        const auto notebooks = client->listNotebooks();
        ASSERT_FALSE(notebooks.ok()) << "reply " << i;
        EXPECT_NE(notebooks.error().message.find("listNotebooks"), std::string::npos) << notebooks.error().message;
    }
    EXPECT_EQ(served, replies.size()) << "a malformed answer is not asked for again";
}

}  // namespace
}  // namespace vxcloud::testing
