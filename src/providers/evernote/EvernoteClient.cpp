#include "EvernoteClient.h"

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TTransportException.h>

#include <algorithm>
#include <mutex>

#include "EdamReply.h"
#include "EdamTransport.h"
#include "EvernoteWire.h"
#include "NoteStore.h"
#include "UserStore.h"
#include "providers/oauth/ClientForAccount.h"
#include "vxcloud/auth/VXCloudTokenStore.h"

namespace vxcloud::evernote {

namespace edam = ::evernote::edam;
using apache::thrift::protocol::TBinaryProtocol;

namespace {

// Evernote answers every call with 200 and puts its refusals in the message; an HTTP error
// is the service's (or a proxy's) trouble.
providers::ProviderHooks evernoteHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "Evernote";
    hooks.logTag = "evernote";
    hooks.readError = [](const HttpResponse& response) {
        ProviderError error;
        error.httpStatus = response.status;
        error.message = "HTTP " + std::to_string(response.status);
        return error;
    };
    return hooks;
}

// A token that cannot be had reads like the service's answer to an expired one.
constexpr int kAuthExpired = 9;

}  // namespace

// One client per account; a call's transport is made for it, so calls run side by side.
struct EvernoteClient::Impl {
    ClientOptions options;
    std::shared_ptr<oauth::TokenProvider> tokens;
    providers::ProviderCaller caller;

    Impl(std::shared_ptr<oauth::TokenProvider> tokenProvider, ClientOptions clientOptions)
        : options(std::move(clientOptions)),
          tokens(tokenProvider),
          caller(std::move(tokenProvider), options.http, options.retry, evernoteHooks()) {}

    std::string userStoreUrl() const {
        const auto it = options.endpoints.extra.find("userstore");
        return it != options.endpoints.extra.end() ? it->second : options.endpoints.apiBase + "/edam/user";
    }

    // Runs one Thrift call with a fresh transport: the token in, the EDAM exceptions and the
    // transport's failures out as ProviderErrors.
    template <typename Service, typename T, typename Call>
    Result<T> run(const std::string& url, const std::string& what, bool idempotent, Call&& call) {
        const auto token = tokens->accessToken();
        if (!token.accessToken) {
            ProviderError error = ProviderError::fromEvernote(kAuthExpired, "authenticationToken",
                                                              "no usable token: " + token.failure->error.message);
            return Result<T>::failure(std::move(error));
        }
        auto transport = std::make_shared<EdamTransport>(caller, url);
        transport->prepare(what, idempotent);
        // Replies are read with every size they claim bounded by their length.
        auto reader = replyReader(transport);
        transport->onReply([raw = reader.get()](std::size_t bytes) { boundReplyReader(*raw, bytes); });
        Service client(reader, std::make_shared<TBinaryProtocol>(transport));
        try {
            return Result<T>::success(call(client, *token.accessToken));
        } catch (const edam::EDAMUserException& e) {
            return Result<T>::failure(ProviderError::fromEvernote(
                static_cast<int>(e.errorCode), e.__isset.parameter ? std::optional(e.parameter) : std::nullopt,
                what + ": EDAM error " + std::to_string(static_cast<int>(e.errorCode))));
        } catch (const edam::EDAMSystemException& e) {
            ProviderError error = ProviderError::fromEvernote(
                static_cast<int>(e.errorCode), std::nullopt,
                what + ": EDAM system error " + std::to_string(static_cast<int>(e.errorCode)) +
                    (e.__isset.message ? " " + e.message : std::string()));
            if (e.__isset.rateLimitDuration) error.retryAfterSeconds = e.rateLimitDuration;
            return Result<T>::failure(std::move(error));
        } catch (const edam::EDAMNotFoundException& e) {
            ProviderError error;
            error.message = what + ": not found: " + (e.__isset.identifier ? e.identifier : std::string("?"));
            return Result<T>::failure(std::move(error));
        } catch (const apache::thrift::transport::TTransportException& e) {
            if (transport->lastError()) return Result<T>::failure(*transport->lastError());
            return Result<T>::failure(caller.malformed(what, e.what()));
        } catch (const apache::thrift::TException& e) {
            // An answer that is not the call's reply (a truncated or foreign body).
            return Result<T>::failure(caller.malformed(what, e.what()));
        }
    }

    template <typename T, typename Call>
    Result<T> noteStore(const std::string& what, bool idempotent, Call&& call) {
        return run<edam::NoteStoreClient, T>(options.noteStoreUrl, what, idempotent, std::forward<Call>(call));
    }
};

EvernoteClient::EvernoteClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options)
    : impl_(std::make_unique<Impl>(std::move(tokens), std::move(options))) {}

EvernoteClient::~EvernoteClient() = default;

std::shared_ptr<EvernoteClient> EvernoteClient::forStorageName(const std::string& storageName) {
    if (storageName.empty()) return nullptr;
    const auto token = VXCloudTokenStore::load(VXCloudService::evernote, storageName);
    if (!token) return nullptr;
    const auto noteStore = token->extra.find(kNoteStoreUrlKey);
    if (noteStore == token->extra.end() || noteStore->second.empty()) return nullptr;
    ClientOptions options;
    options.endpoints = VXCloudServiceConfig::endpoints(VXCloudService::evernote);
    options.limits = VXCloudServiceConfig::uploadLimits(VXCloudService::evernote);
    options.noteStoreUrl = noteStore->second;
    return std::make_shared<EvernoteClient>(std::make_shared<oauth::TokenProvider>(VXCloudService::evernote, storageName),
                                            std::move(options));
}

std::shared_ptr<EvernoteClient> EvernoteClient::withGrantedToken(std::string authToken, std::string noteStoreUrl) {
    ClientOptions options;
    options.endpoints = VXCloudServiceConfig::endpoints(VXCloudService::evernote);
    options.noteStoreUrl = std::move(noteStoreUrl);
    return std::make_shared<EvernoteClient>(
        oauth::TokenProvider::forGrantedToken(VXCloudService::evernote, std::move(authToken)), std::move(options));
}

Result<User> EvernoteClient::getUser() {
    return impl_->run<edam::UserStoreClient, User>(impl_->userStoreUrl(), "getUser", true,
                                                   [](edam::UserStoreClient& client, const std::string& token) {
                                                       edam::User user;
                                                       client.getUser(user, token);
                                                       return userOf(user);
                                                   });
}

Result<std::vector<Notebook>> EvernoteClient::listNotebooks() {
    return impl_->noteStore<std::vector<Notebook>>("listNotebooks", true, [](edam::NoteStoreClient& client,
                                                                             const std::string& token) {
        std::vector<edam::Notebook> listed;
        client.listNotebooks(listed, token);
        std::vector<Notebook> out;
        for (const auto& notebook : listed) out.push_back(notebookOf(notebook));
        return out;
    });
}

Result<Notebook> EvernoteClient::getNotebook(const std::string& guid) {
    return impl_->noteStore<Notebook>("getNotebook", true, [&](edam::NoteStoreClient& client, const std::string& token) {
        edam::Notebook notebook;
        client.getNotebook(notebook, token, guid);
        return notebookOf(notebook);
    });
}

Result<Notebook> EvernoteClient::getDefaultNotebook() {
    return impl_->noteStore<Notebook>("getDefaultNotebook", true, [](edam::NoteStoreClient& client,
                                                                     const std::string& token) {
        edam::Notebook notebook;
        client.getDefaultNotebook(notebook, token);
        return notebookOf(notebook);
    });
}

Result<Notebook> EvernoteClient::createNotebook(const std::string& name) {
    // A repeat after a lost answer would meet the notebook it made (DATA_CONFLICT).
    return impl_->noteStore<Notebook>("createNotebook", false, [&](edam::NoteStoreClient& client,
                                                                   const std::string& token) {
        edam::Notebook wanted;
        wanted.__set_name(name);
        edam::Notebook made;
        client.createNotebook(made, token, wanted);
        return notebookOf(made);
    });
}

Result<std::vector<Note>> EvernoteClient::findNotes(const std::string& words,
                                                    const std::optional<std::string>& notebookGuid, int maxNotes) {
    edam::NoteFilter filter;
    if (!words.empty()) filter.__set_words(words);
    if (notebookGuid) filter.__set_notebookGuid(*notebookGuid);
    edam::NotesMetadataResultSpec wantedFields;
    wantedFields.__set_includeTitle(true);
    wantedFields.__set_includeNotebookGuid(true);
    // The service gives at most 250 a call: pages until the total or the limit is reached.
    std::vector<std::string> guids;
    for (int offset = 0; offset < maxNotes;) {
        const int wanted = std::min(kSearchPageLimit, maxNotes - offset);
        auto page = impl_->noteStore<edam::NotesMetadataList>(
            "findNotesMetadata", true, [&](edam::NoteStoreClient& client, const std::string& token) {
                edam::NotesMetadataList list;
                client.findNotesMetadata(list, token, filter, offset, wanted, wantedFields);
                return list;
            });
        if (!page.ok()) return Result<std::vector<Note>>::failureOf(page);
        const auto& list = page.value();
        for (const auto& note : list.notes) guids.push_back(note.guid);
        offset = list.startIndex + static_cast<int>(list.notes.size());
        if (list.notes.empty() || offset >= list.totalNotes) break;
    }
    // Each candidate's resources, hashes only: the documents' bytes stay at the service.
    std::vector<Note> notes;
    for (const auto& guid : guids) {
        auto note = getNote(guid, false);
        if (!note.ok()) return Result<std::vector<Note>>::failureOf(note);
        notes.push_back(std::move(note.value()));
    }
    return Result<std::vector<Note>>::success(std::move(notes));
}

Result<Note> EvernoteClient::getNote(const std::string& guid, bool withResourcesData) {
    return impl_->noteStore<Note>("getNote", true, [&](edam::NoteStoreClient& client, const std::string& token) {
        edam::Note note;
        client.getNote(note, token, guid, false, withResourcesData, false, false);
        return noteOf(note);
    });
}

Result<Note> EvernoteClient::createNote(const NoteDraft& draft) {
    const edam::Note wanted = edamNoteOf(draft);
    // A repeat after a lost answer would store the note twice.
    return impl_->noteStore<Note>("createNote", false, [&](edam::NoteStoreClient& client, const std::string& token) {
        edam::Note made;
        client.createNote(made, token, wanted);
        return noteOf(made);
    });
}

Result<Note> EvernoteClient::updateNote(const NoteDraft& draft) {
    const edam::Note wanted = edamNoteOf(draft);
    return impl_->noteStore<Note>("updateNote", true, [&](edam::NoteStoreClient& client, const std::string& token) {
        edam::Note changed;
        client.updateNote(changed, token, wanted);
        return noteOf(changed);
    });
}

}  // namespace vxcloud::evernote
