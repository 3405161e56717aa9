// The Thrift routes: UserStore at /evernote/edam/user and each shard's NoteStore, one route
// key per method, named from the call at the start of the body.
#include <algorithm>

#include "evernote/EdamHandlers.h"
#include "evernote/ThriftCalls.h"

namespace vxcloud::sandbox::evernote {
namespace {

const std::vector<std::string> kUserStoreMethods = {"checkVersion", "getUser", "getUserUrls", "getNoteStoreUrl"};
const std::vector<std::string> kNoteStoreMethods = {"listNotebooks",  "getNotebook", "getDefaultNotebook",
                                                    "createNotebook", "findNotes",   "findNotesMetadata",
                                                    "getNote",        "createNote",  "updateNote"};

// "evernote/<service>/<method>", and "evernote/<service>/other" for requests that name none
// of the service's methods (not Thrift, or an unknown method); "other" comes first, as the
// key of a request cut off before it named one.
std::vector<std::string> keysOf(const std::string& service, const std::vector<std::string>& methods) {
    std::vector<std::string> keys = {"evernote/" + service + "/other"};
    for (const auto& method : methods) keys.push_back("evernote/" + service + "/" + method);
    return keys;
}

RouteKeyOf keyOf(const std::string& service, const std::vector<std::string>& methods) {
    return [service, methods](const Request&, std::string_view body, bool complete) -> std::optional<std::string> {
        const auto method = thriftMethod(body, complete);
        if (!method) return std::nullopt;
        const bool known = std::find(methods.begin(), methods.end(), *method) != methods.end();
        return "evernote/" + service + "/" + (known ? *method : std::string("other"));
    };
}

}  // namespace

void EvernoteModule::registerEdamRoutes(Router& router) {
    const std::string userStore = "/evernote/edam/user";
    router.addKeyed("POST", Router::escape(userStore), keysOf("userstore", kUserStoreMethods),
                    keyOf("userstore", kUserStoreMethods), [this](Request& request, Response& response) {
                        edam::UserStoreProcessor processor(std::make_shared<UserStoreHandler>(*this));
                        answerThrift(processor, request, response);
                    });
    router.exact("GET", userStore, "evernote/userstore/other",
                 [](Request&, Response& response) { answerNotThrift(response); });

    const std::string noteStore = "/evernote/shard/([^/]+)/notestore";
    auto knownShard = [this](const std::string& shard) {
        const auto all = accounts();
        return std::any_of(all.begin(), all.end(), [&](const AccountInfo& a) { return shardOf(a.id) == shard; });
    };
    router.addKeyed("POST", noteStore, keysOf("notestore", kNoteStoreMethods), keyOf("notestore", kNoteStoreMethods),
                    [this, knownShard](Request& request, Response& response) {
                        const std::string shard = request.captures[0];
                        if (!knownShard(shard)) return response.text(404, "Not Found\n");
                        edam::NoteStoreProcessor processor(std::make_shared<NoteStoreHandler>(*this, request, shard));
                        answerThrift(processor, request, response);
                    });
    router.add("GET", noteStore, "evernote/notestore/other", [knownShard](Request& request, Response& response) {
        if (!knownShard(request.captures[0])) return response.text(404, "Not Found\n");
        answerNotThrift(response);
    });
}

}  // namespace vxcloud::sandbox::evernote
