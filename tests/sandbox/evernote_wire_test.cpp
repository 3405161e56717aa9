// The shape of EDAM over HTTP on the sandbox, and its faults: one route key per Thrift
// method, 200 application/x-thrift answers with declared exceptions in the reply, unknown
// methods as Thrift exceptions, 400 for what is not a Thrift call, and injected EDAM
// exceptions and HTTP failures.
#include <thrift/TApplicationException.h>

#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using E = edam::EDAMErrorCode;

class EvernoteWire : public EvernoteWireTest {};

TEST_F(EvernoteWire, EachMethodIsItsOwnRoute) {
    const auto routes = sandbox.routes("evernote");
    for (const char* key :
         {"evernote/notestore/createNote", "evernote/notestore/findNotesMetadata", "evernote/userstore/getUserUrls",
          "evernote/oauth/temporary", "evernote/oauth/token", "evernote/oauth/authorize"}) {
        EXPECT_NE(std::find(routes.begin(), routes.end(), key), routes.end()) << key;
    }
    create(note("One"));
    create(note("Two"));
    std::vector<edam::Notebook> notebooks;
    noteStore->listNotebooks(notebooks, ada.accessToken);
    EXPECT_EQ(sandbox.stats("evernote/notestore/createNote").requests, 2);
    EXPECT_EQ(sandbox.stats("evernote/notestore/listNotebooks").requests, 1);
    EXPECT_EQ(sandbox.stats("evernote/notestore/getNote").requests, 0);
    EXPECT_EQ(sandbox.stats("evernote/*").requests, 3);

    // A queued fault hits only its method.
    ASSERT_TRUE(fx_.queueFault("evernote/notestore/createNote", "error=INTERNAL_ERROR"));
    noteStore->listNotebooks(notebooks, ada.accessToken);
    EXPECT_EQ(sandbox.stats("evernote/notestore/createNote").faultsPending, 1);
    EXPECT_THROW(create(note("Three")), edam::EDAMSystemException);
    const auto received = sandbox.stats("evernote/notestore/createNote").bytesReceived;
    EXPECT_EQ(sandbox.stats("evernote/notestore/createNote").faultsHit, 1);

    // Connection faults too, cutting the body after the method is named: nothing is made.
    ASSERT_TRUE(fx_.queueFault("evernote/notestore/createNote", "drop-after=100"));
    EXPECT_THROW(create(note("Cut", {std::string(4096, 'c')})), apache::thrift::transport::TTransportException);
    EXPECT_EQ(sandbox.stats("evernote/notestore/createNote").faultsHit, 2);
    EXPECT_EQ(sandbox.stats("evernote/notestore/createNote").bytesReceived - received, 100);
    EXPECT_FALSE(sandbox.metadata("evernote", "/Ada's Notebook/Cut").is_object());
}

TEST_F(EvernoteWire, InjectedErrorsAreEdamExceptions) {
    auto systemError = [&](const std::string& fault) {
        noteStore.transport->fault = fault;
        try {
            create(note("Faulted"));
        } catch (const edam::EDAMSystemException& e) {
            return e;
        }
        ADD_FAILURE() << fault << " gave no EDAMSystemException";
        return edam::EDAMSystemException();
    };
    const auto limited = systemError("error=19:1800");
    EXPECT_EQ(limited.errorCode, E::RATE_LIMIT_REACHED);
    EXPECT_TRUE(limited.__isset.rateLimitDuration);
    EXPECT_EQ(limited.rateLimitDuration, 1800);
    const auto unspecified = systemError("error=RATE_LIMIT_REACHED");
    EXPECT_EQ(unspecified.errorCode, E::RATE_LIMIT_REACHED);
    EXPECT_FALSE(unspecified.__isset.rateLimitDuration) << "as some answers of the service come";
    EXPECT_EQ(systemError("error=shard_unavailable").errorCode, E::SHARD_UNAVAILABLE);
    EXPECT_EQ(systemError("error=system:4:disk%20full").message, "disk full");
    EXPECT_EQ(noteStore.transport->status, 200);
    EXPECT_EQ(noteStore.transport->contentType, "application/x-thrift");

    noteStore.transport->fault = "error=4:Notebook.guid";
    expectUserError([&] { create(note("Faulted")); }, E::INTERNAL_ERROR, "Notebook.guid");
    noteStore.transport->fault = "error=user:19";
    expectUserError([&] { create(note("Faulted")); }, E::RATE_LIMIT_REACHED, "");
    noteStore.transport->fault = "error=notfound:Note.guid";
    try {
        create(note("Faulted"));
        ADD_FAILURE() << "no EDAMNotFoundException";
    } catch (const edam::EDAMNotFoundException& e) {
        EXPECT_EQ(e.identifier, "Note.guid");
    }
    // A method that does not declare the exception gets it as a Thrift exception.
    userStore.transport->fault = "error=notfound";
    EXPECT_THROW(userStore->checkVersion("x", 1, 28), apache::thrift::TApplicationException);

    userStore.transport->fault = "status=503";
    EXPECT_THROW(userStore->checkVersion("x", 1, 28), apache::thrift::transport::TTransportException);
    EXPECT_EQ(userStore.transport->status, 503);
    userStore.transport->fault = "expire-token";
    expectUserError(
        [&] {
            edam::User u;
            userStore->getUser(u, ada.accessToken);
        },
        E::AUTH_EXPIRED, "authenticationToken");

    std::string error;
    EXPECT_FALSE(
        sandbox.enqueueFault("evernote/notestore/createNote", *FaultSpec::parse("error=NO_SUCH_CODE"), 1, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(sandbox.enqueueFault("box/files/get", *FaultSpec::parse("error=not_found"), 1, &error))
        << "other providers still want a status with error=";
}

TEST_F(EvernoteWire, WhatIsNotAThriftCallIsABadRequest) {
    EXPECT_EQ(client->Get("/evernote/edam/user")->status, 400);
    EXPECT_EQ(client->Get("/evernote/shard/s1/notestore")->status, 400);
    EXPECT_EQ(client->Post("/evernote/edam/user", "{\"method\": \"getUser\"}", "application/json")->status, 400);
    EXPECT_EQ(client->Post("/evernote/shard/s9/notestore", "x", "application/x-thrift")->status, 404);
    EXPECT_EQ(sandbox.stats("evernote/userstore/other").requests, 2);

    // A well-formed call of a method the service does not have.
    auto unknown = over<edam::NoteStoreClient>("/evernote/edam/user");
    try {
        std::vector<edam::Notebook> notebooks;
        unknown->listNotebooks(notebooks, ada.accessToken);
        FAIL() << "the UserStore answered a NoteStore method";
    } catch (const apache::thrift::TApplicationException& e) {
        EXPECT_EQ(e.getType(), apache::thrift::TApplicationException::UNKNOWN_METHOD);
    }
    EXPECT_EQ(unknown.transport->status, 200);
    EXPECT_EQ(sandbox.stats("evernote/userstore/other").requests, 3);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
