// Uploads: files/upload and upload sessions (start, append_v2, finish), with the write
// modes, conflicts, quota and the per-request size limit.
#include "dropbox/DropboxModule.h"
#include "dropbox/DropboxPaths.h"
#include "dropbox/ContentHash.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {
namespace {

CommitInfo parseCommit(const Args& a) {
    CommitInfo commit;
    commit.path = a.path("path", PathKind::write);
    const std::string mode = a.unionTag("mode", "add");
    if (mode == "add") {
        commit.mode = CommitInfo::Mode::add;
    } else if (mode == "overwrite") {
        commit.mode = CommitInfo::Mode::overwrite;
    } else if (mode == "update") {
        commit.mode = CommitInfo::Mode::update;
        const json& m = a.raw()["mode"];
        if (!m.is_object() || !m.contains("update") || !m["update"].is_string()) {
            a.fail("mode: missing required field 'update'");
        }
        commit.updateRev = m["update"].get<std::string>();
    } else {
        a.fail("mode: unknown tag '" + mode + "'");
    }
    commit.autorename = a.flag("autorename", false);
    commit.strictConflict = a.flag("strict_conflict", false);
    commit.clientModified = a.timestamp("client_modified");
    a.flag("mute", false);
    return commit;
}

// The optional content_hash of an argument: 64 characters when given.
std::optional<std::string> declaredHash(const Args& a) {
    auto hash = a.optionalString("content_hash");
    if (hash && hash->size() != 64) a.fail("content_hash: '" + *hash + "' must be 64 characters long");
    return hash;
}

struct Chunk {
    std::string sessionId;
    std::int64_t offset = 0;
};

Chunk parseCursor(const Args& a) {
    const Args cursor = a.object("cursor");
    Chunk chunk;
    chunk.sessionId = cursor.string("session_id");
    const auto offset = cursor.optionalInteger("offset", 0, INT64_MAX);
    if (!offset) cursor.fail("missing required field 'offset'");
    chunk.offset = *offset;
    return chunk;
}

}  // namespace

json DropboxModule::commitFile(Tree& tree, const CommitInfo& commit, const ByteBuffer& data, const std::string& hash,
                               bool quotaFull) {
    WriteTarget target = writeTarget(tree, commit.path);
    Node* existing = target.existing;
    std::string name;
    bool replace = false;
    auto conflict = [](const char* kind) { return WriteFailure{tagWith("conflict", tag(kind))}; };
    if (existing && existing->isFolder) {
        if (!commit.autorename) throw conflict("folder");
        name = freeName(tree, *target.parent, existing->name, false);
    } else if (existing) {
        const bool identical = contentHash(*existing) == hash;
        if (identical && !commit.strictConflict) return metadata(tree, *existing, false);  // nothing to write
        switch (commit.mode) {
            case CommitInfo::Mode::add:
                if (!commit.autorename) throw conflict("file");
                name = freeName(tree, *target.parent, existing->name, false);
                break;
            case CommitInfo::Mode::overwrite:
                replace = true;
                break;
            case CommitInfo::Mode::update:
                if (existing->rev == commit.updateRev && !identical) {
                    replace = true;
                } else {
                    if (!commit.autorename) throw conflict("file");
                    name = freeName(tree, *target.parent, existing->name, true);
                }
                break;
        }
    } else {
        // strict_conflict: updating a revision that is gone is a conflict too.
        if (commit.mode == CommitInfo::Mode::update && commit.strictConflict) throw conflict("file");
        name = targetName(target);
    }
    const std::int64_t growth = static_cast<std::int64_t>(data.size()) -
                                (replace ? static_cast<std::int64_t>(existing->size()) : 0);
    if (quotaFull || !tree.fits(growth)) throw WriteFailure{tag("insufficient_space")};
    if (replace) {
        tree.setContent(*existing, data, commit.clientModified);
        existing->primeHash("dropbox", hash);
        return metadata(tree, *existing, false);
    }
    Node& parent = createParents(tree, target);
    Node& file = tree.createFile(parent, name, data, commit.clientModified);
    file.primeHash("dropbox", hash);
    return metadata(tree, file, false);
}

std::string DropboxModule::newSession(const std::string& accountId, std::string data, bool closed, bool concurrent) {
    UploadSession session;
    session.accountId = accountId;
    session.data = std::move(data);
    session.closed = closed;
    session.concurrent = concurrent;
    return sessions_.add(std::move(session), settings_.uploadSessionLifetime, "pid_upload_session:", 22);
}

void DropboxModule::registerUploadRoutes(Router& router) {
    // Sessions of this account that have not expired; null otherwise.
    auto findSession = [this](const std::string& id, const std::string& accountId) -> UploadSession* {
        UploadSession* session = sessions_.find(id);
        return session && session->accountId == accountId ? session : nullptr;
    };

    route(router, Style::upload, "files/upload", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const CommitInfo commit = parseCommit(a);
        const auto expected = declaredHash(a);
        const ByteBuffer& body = call.request.body;
        if (static_cast<std::int64_t>(body.size()) > currentSettings().maxUploadRequestBytes) {
            routeError(tag("payload_too_large"));
        }
        const std::string hash = dropboxContentHash(body.view());  // outside the lock: large bodies
        if (expected && *expected != hash) routeError(tag("content_hash_mismatch"));
        std::lock_guard lock(store().mutex());
        try {
            call.ok(commitFile(store().tree(call.account.id), commit, body, hash, call.request.quotaFull));
        } catch (const WriteFailure& failure) {
            // The bytes stay in a session, so the client can commit them elsewhere.
            const std::string session = newSession(call.account.id, body.toString(), false, false);
            routeError({{".tag", "path"}, {"reason", failure.error}, {"upload_session_id", session}});
        }
    });

    route(router, Style::upload, "files/upload_session/start", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const bool close = a.flag("close", false);
        const std::string type = a.unionTag("session_type", "sequential");
        if (type != "sequential" && type != "concurrent") a.fail("session_type: unknown tag '" + type + "'");
        const auto expected = declaredHash(a);
        const ByteBuffer& body = call.request.body;
        if (static_cast<std::int64_t>(body.size()) > currentSettings().maxUploadRequestBytes) {
            routeError(tag("payload_too_large"));
        }
        const bool concurrent = type == "concurrent";
        if (concurrent && !body.empty()) routeError(tag("concurrent_session_data_not_allowed"));
        if (concurrent && close) routeError(tag("concurrent_session_close_not_allowed"));
        if (expected && *expected != dropboxContentHash(body.view())) routeError(tag("content_hash_mismatch"));
        std::lock_guard lock(store().mutex());
        call.ok({{"session_id", newSession(call.account.id, body.toString(), close, concurrent)}});
    });

    route(router, Style::upload, "files/upload_session/append_v2", "files.content.write", false,
          [this, findSession](Call& call) {
              const Args a = call.args();
              const Chunk chunk = parseCursor(a);
              const bool close = a.flag("close", false);
              const auto expected = declaredHash(a);
              const ByteBuffer& body = call.request.body;
              const auto size = static_cast<std::int64_t>(body.size());
              if (size > currentSettings().maxUploadRequestBytes) routeError(tag("payload_too_large"));
              if (expected && *expected != dropboxContentHash(body.view())) routeError(tag("content_hash_mismatch"));
              std::lock_guard lock(store().mutex());
              UploadSession* session = findSession(chunk.sessionId, call.account.id);
              if (!session) routeError(tag("not_found"));
              if (session->closed) routeError(tag("closed"));
              if (session->concurrent) {
                  const std::int64_t multiple = settings_.concurrentChunkMultiple;
                  if (chunk.offset % multiple != 0) routeError(tag("concurrent_session_invalid_offset"));
                  if (!close && size % multiple != 0) routeError(tag("concurrent_session_invalid_data_size"));
                  if (chunk.offset + size > settings_.maxFileSize) routeError(tag("too_large"));
                  session->chunks[chunk.offset] = body.toString();
                  if (close) {
                      session->closed = true;
                      session->closedSize = chunk.offset + size;
                  }
              } else {
                  const auto received = static_cast<std::int64_t>(session->data.size());
                  if (chunk.offset != received) {
                      routeError({{".tag", "incorrect_offset"}, {"correct_offset", received}});
                  }
                  if (received + size > settings_.maxFileSize) routeError(tag("too_large"));
                  session->data.append(body.view());
                  session->closed = close;
              }
              call.response.json(200, nullptr);
          });

    route(router, Style::upload, "files/upload_session/finish", "files.content.write", false,
          [this, findSession](Call& call) {
              const Args a = call.args();
              const Chunk chunk = parseCursor(a);
              const CommitInfo commit = parseCommit(a.object("commit"));
              const auto expected = declaredHash(a);
              const ByteBuffer& body = call.request.body;
              const auto size = static_cast<std::int64_t>(body.size());
              if (size > currentSettings().maxUploadRequestBytes) routeError(tag("payload_too_large"));
              std::lock_guard lock(store().mutex());
              auto lookupFailed = [](const json& error) { routeError(tagWith("lookup_failed", error)); };
              UploadSession* session = findSession(chunk.sessionId, call.account.id);
              if (!session) lookupFailed(tag("not_found"));
              if (session->concurrent) {
                  if (!body.empty()) routeError(tag("concurrent_session_data_not_allowed"));
                  if (!session->closed) routeError(tag("concurrent_session_not_closed"));
                  std::string whole;
                  for (const auto& [offset, data] : session->chunks) {
                      if (offset != static_cast<std::int64_t>(whole.size())) routeError(tag("concurrent_session_missing_data"));
                      whole += data;
                  }
                  if (static_cast<std::int64_t>(whole.size()) != session->closedSize) {
                      routeError(tag("concurrent_session_missing_data"));
                  }
                  session->data = std::move(whole);
                  session->chunks.clear();
                  session->chunks[0] = session->data;  // kept for a retry after a path error
              } else {
                  const auto received = static_cast<std::int64_t>(session->data.size());
                  if (chunk.offset != received) {
                      lookupFailed({{".tag", "incorrect_offset"}, {"correct_offset", received}});
                  }
                  if (session->closed && size > 0) lookupFailed(tag("closed"));
                  if (received + size > settings_.maxFileSize) lookupFailed(tag("too_large"));
                  // These bytes are kept even when the commit below fails.
                  session->data.append(body.view());
              }
              const std::string hash = dropboxContentHash(session->data);
              if (expected && *expected != hash) routeError(tag("content_hash_mismatch"));
              const ByteBuffer data = ByteBuffer::copyOf(session->data);
              try {
                  call.ok(commitFile(store().tree(call.account.id), commit, data, hash, call.request.quotaFull));
                  sessions_.erase(chunk.sessionId);
              } catch (const WriteFailure& failure) {
                  routeError(tagWith("path", failure.error));
              }
          });
}

}  // namespace vxcloud::sandbox::dropbox
