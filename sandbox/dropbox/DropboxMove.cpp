// Moving: move_v2, and move_batch_v2 with its job polled through move_batch/check_v2. A batch
// job runs when a check finds it due, so until then nothing has moved.
#include "dropbox/DropboxModule.h"
#include "dropbox/DropboxPaths.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {

json DropboxModule::relocate(Tree& tree, const std::string& fromPath, const std::string& toPath, bool autorename) {
    const Located source = locate(tree, fromPath);
    if (source.status == Located::Status::malformed) throw RelocationFailure{tagWith("from_lookup", tag("malformed_path"))};
    if (source.status != Located::Status::ok || !source.node || source.node->id == tree.root().id) {
        throw RelocationFailure{tagWith("from_lookup", tag("not_found"))};
    }
    Node& node = *source.node;
    WriteTarget target;
    try {
        target = writeTarget(tree, toPath);
    } catch (const WriteFailure& failure) {
        throw RelocationFailure{tagWith("to", failure.error)};
    }
    if (node.isFolder && target.parent && (target.parent == &node || tree.isAncestor(node, *target.parent))) {
        throw RelocationFailure{tag("cant_move_folder_into_itself")};
    }
    std::string name;
    if (target.existing) {
        // Includes a case-only rename of the item itself, which the service does not support.
        if (!autorename || target.existing == &node) {
            throw RelocationFailure{tagWith("to", tagWith("conflict", tag(target.existing->isFolder ? "folder" : "file")))};
        }
        name = freeName(tree, *target.parent, target.existing->name, false);
    } else {
        name = targetName(target);
    }
    Node& parent = createParents(tree, target);
    tree.move(node, parent, name);
    return metadata(tree, node, true);
}

json DropboxModule::runBatch(Tree& tree, const std::vector<std::pair<std::string, std::string>>& entries,
                             bool autorename) {
    json results = json::array();
    for (const auto& [from, to] : entries) {
        try {
            results.push_back(tagWith("success", relocate(tree, from, to, autorename)));
        } catch (const RelocationFailure& failure) {
            results.push_back(tagWith("failure", tagWith("relocation_error", failure.error)));
        }
    }
    return {{".tag", "complete"}, {"entries", results}};
}

void DropboxModule::registerMoveRoutes(Router& router) {
    route(router, Style::rpc, "files/move_v2", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const std::string from = a.path("from_path", PathKind::write);
        const std::string to = a.path("to_path", PathKind::write);
        const bool autorename = a.flag("autorename", false);
        a.flag("allow_shared_folder", false);
        a.flag("allow_ownership_transfer", false);
        std::lock_guard lock(store().mutex());
        try {
            call.ok({{"metadata", relocate(store().tree(call.account.id), from, to, autorename)}});
        } catch (const RelocationFailure& failure) {
            routeError(failure.error);
        }
    });

    route(router, Style::rpc, "files/move_batch_v2", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const json& list = a.array("entries");
        if (list.empty() || list.size() > 1000) {
            a.fail("entries: list has " + std::to_string(list.size()) + " items, expected 1 to 1000");
        }
        MoveJob job;
        job.accountId = call.account.id;
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (!list[i].is_object()) a.fail("entries[" + std::to_string(i) + "]: expected object");
            const Args entry(list[i], call.route, call.where + ": entries[" + std::to_string(i) + "]");
            job.entries.emplace_back(entry.path("from_path", PathKind::write), entry.path("to_path", PathKind::write));
        }
        job.autorename = a.flag("autorename", false);
        a.flag("allow_ownership_transfer", false);
        std::lock_guard lock(store().mutex());
        if (!settings_.moveBatchAsync) {
            return call.ok(runBatch(store().tree(call.account.id), job.entries, job.autorename));
        }
        job.checksLeft = settings_.moveBatchInProgressChecks;
        const std::string id = "dbjid:" + randomToken(42);
        jobs_[id] = std::move(job);
        call.ok({{".tag", "async_job_id"}, {"async_job_id", id}});
    });

    route(router, Style::rpc, "files/move_batch/check_v2", "files.content.write", false, [this](Call& call) {
        const std::string id = call.args().string("async_job_id");
        std::lock_guard lock(store().mutex());
        const auto it = jobs_.find(id);
        if (it == jobs_.end() || it->second.accountId != call.account.id) routeError(tag("invalid_async_job_id"));
        MoveJob& job = it->second;
        if (!job.result && job.checksLeft > 0) {
            --job.checksLeft;
            return call.ok(tag("in_progress"));
        }
        if (!job.result) job.result = runBatch(store().tree(call.account.id), job.entries, job.autorename);
        call.ok(*job.result);
    });
}

}  // namespace vxcloud::sandbox::dropbox
