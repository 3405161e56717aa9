// Evernote's EDAM replies: the generated Thrift types read through the library's reply
// protocol (the binary protocol over the whole body, sizes bounded by it), either one struct at
// a time or as a whole NoteStore or UserStore reply message through the generated client's
// recv_*; a reply's EDAM exception then goes through the error classifier.
//
// The first byte picks what is read; the rest is the reply.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thrift/TApplicationException.h>
#include <vector>

#include "../src/providers/evernote/EdamReply.h"
#include "Edam_types.h"
#include "FuzzInput.h"
#include "NoteStore.h"
#include "UserStore.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/platform/Log.h"

using namespace vxcloud;
using namespace ::evernote::edam;
using vxcloud::fuzz::FuzzInput;

namespace {

template <typename T>
void readStruct(std::string_view reply) {
    T value;
    value.read(vxcloud::evernote::replyProtocol(reply).get());
}

// What the session does with a failed call: the EDAM code and parameter, classified.
void classify(int code, std::optional<std::string> parameter, std::string message = {}) {
    const auto error = ProviderError::fromEvernote(code, std::move(parameter), std::move(message));
    const auto classified = VXCloudError::initWithError(error, VXCloudService::evernote);
    FUZZ_CHECK(classified && classified->errorCode == VXCloudError::errorCodeFromEvernoteError(error));
}

void noteStoreReply(std::size_t method, std::string_view reply) {
    NoteStoreClient client(vxcloud::evernote::replyProtocol(reply));
    switch (method % 9) {
        case 0: { Note note; client.recv_createNote(note); break; }
        case 1: { Note note; client.recv_updateNote(note); break; }
        case 2: { Note note; client.recv_getNote(note); break; }
        case 3: { std::vector<Notebook> notebooks; client.recv_listNotebooks(notebooks); break; }
        case 4: { Notebook notebook; client.recv_getNotebook(notebook); break; }
        case 5: { Notebook notebook; client.recv_getDefaultNotebook(notebook); break; }
        case 6: { Notebook notebook; client.recv_createNotebook(notebook); break; }
        case 7: { NotesMetadataList list; client.recv_findNotesMetadata(list); break; }
        case 8: { NoteList list; client.recv_findNotes(list); break; }
    }
}

void userStoreReply(std::size_t method, std::string_view reply) {
    UserStoreClient client(vxcloud::evernote::replyProtocol(reply));
    switch (method % 4) {
        case 0: client.recv_checkVersion(); break;
        case 1: { User user; client.recv_getUser(user); break; }
        case 2: { UserUrls urls; client.recv_getUserUrls(urls); break; }
        case 3: { std::string url; client.recv_getNoteStoreUrl(url); break; }
    }
}

void read(std::size_t what, std::string_view reply) {
    switch (what % 12) {
        case 0: readStruct<Note>(reply); break;
        case 1: readStruct<NotesMetadataList>(reply); break;
        case 2: readStruct<Notebook>(reply); break;
        case 3: readStruct<User>(reply); break;
        case 4: readStruct<UserUrls>(reply); break;
        case 5: readStruct<NoteList>(reply); break;
        case 6: readStruct<Resource>(reply); break;
        case 7: {
            // A result struct as the client reads it: it fills the caller's value.
            Note note;
            NoteStore_createNote_presult result;
            result.success = &note;
            result.read(vxcloud::evernote::replyProtocol(reply).get());
            break;
        }
        case 8: readStruct<EDAMUserException>(reply); break;
        case 9: readStruct<EDAMSystemException>(reply); break;
        case 10: noteStoreReply(what / 12, reply); break;
        case 11: userStoreReply(what / 12, reply); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t what = input.byte();
    const std::string_view reply = input.rest();
    try {
        read(what, reply);
    } catch (const EDAMUserException& e) {
        classify(e.errorCode, e.__isset.parameter ? std::optional<std::string>(e.parameter) : std::nullopt);
    } catch (const EDAMSystemException& e) {
        classify(e.errorCode, std::nullopt, e.__isset.message ? e.message : std::string());
    } catch (const apache::thrift::TException&) {
        // A short or malformed reply, an application exception, a missing result: the
        // client reports these as failed calls. Anything else escaping is a finding.
    }
    return 0;
}
