#pragma once
// Our Evernote client: the UserStore and NoteStore calls the session and the sign-in use,
// as Thrift binary calls carried over the shared request path. Every call blocks and is safe
// on any thread; failures are ProviderErrors carrying the EDAM exception's code and
// `parameter`, for errorCodeFromEvernoteError. The generated EDAM types stay inside the
// client's sources.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../ProviderCaller.h"
#include "EvernoteItem.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::evernote {

template <typename T>
using Result = providers::CallResult<T>;

// Where a stored authorisation keeps the user's NoteStore address (the token answer's
// edam_noteStoreUrl) beside the token.
inline constexpr const char* kNoteStoreUrlKey = "noteStoreUrl";
// Evernote returns at most this many notes per search call.
inline constexpr int kSearchPageLimit = 250;

struct ClientOptions {
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::defaultEndpoints(VXCloudService::evernote);
    VXCloudUploadLimits limits;
    std::string noteStoreUrl;  // the user's shard
    std::shared_ptr<HttpClient> http;
    RetryPolicy retry = RetryPolicy::standard(4);
};

class EvernoteClient {
public:
    EvernoteClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options);
    ~EvernoteClient();

    // A client for the authorisation stored under `storageName`; null when none is stored
    // or it names no NoteStore.
    static std::shared_ptr<EvernoteClient> forStorageName(const std::string& storageName);
    // A client on a token just granted (the sign-in names the user before storing it).
    static std::shared_ptr<EvernoteClient> withGrantedToken(std::string authToken, std::string noteStoreUrl);

    // UserStore, at the service's UserStore address.
    Result<User> getUser();

    Result<std::vector<Notebook>> listNotebooks();
    Result<Notebook> getNotebook(const std::string& guid);
    Result<Notebook> getDefaultNotebook();
    Result<Notebook> createNotebook(const std::string& name);
    // The notes `words` find (search grammar), in the notebook when one is named, at most
    // `maxNotes`, each with its resources' hashes (no data), read page by page.
    Result<std::vector<Note>> findNotes(const std::string& words, const std::optional<std::string>& notebookGuid,
                                        int maxNotes);
    Result<Note> getNote(const std::string& guid, bool withResourcesData);
    Result<Note> createNote(const NoteDraft& draft);
    Result<Note> updateNote(const NoteDraft& draft);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vxcloud::evernote
