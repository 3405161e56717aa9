// hash: a file's content digest as a service computes it, to compare with what it shows.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "Output.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::cli {

namespace {

int hashFiles(const CommonOptions& common, const std::string& serviceText, const std::vector<std::string>& files) {
    const VXCloudService service = requireService(serviceText);
    int status = kExitOk;
    Json out = Json::array();
    for (const auto& path : files) {
        std::string error;
        const auto data = ByteBuffer::mapFile(path, &error);
        std::optional<std::string> digest;
        if (data) digest = VXCloudFileHasher::hash(*data, service);
        if (!data || !digest) {
            warn("cannot hash " + path + ": " + (data ? std::string("the digest routines failed") : error));
            // A file that cannot be read is wrong input; the others are still hashed.
            status = std::max(status, data ? int(kExitFailed) : int(kExitUsage));
            out.push_back(Json{{"path", path}, {"error", data ? "digest failed" : error}});
            continue;
        }
        if (common.json) {
            out.push_back(Json{{"path", path}, {"service", std::string(accountType(service))}, {"hash", *digest}});
        } else {
            // WebDAV computes no digest: an empty hash, shown as "-".
            say((digest->empty() ? "-" : *digest) + "  " + path);
        }
    }
    if (common.json) printJson(out);
    return status;
}

}  // namespace

void addHashCommand(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    struct Args {
        std::string service;
        std::vector<std::string> files;
    };
    auto args = std::make_shared<Args>();
    auto* hash = line.app.add_subcommand(
        "hash", "Print each file's content digest as the service computes it (MD5 for google_drive and evernote,\n"
                "the content hash for dropbox, SHA-1 for one_drive, one_note and box; none for web_dav)");
    hash->add_option("--service", args->service, "The service's type word: " + serviceWords())
        ->required()
        ->type_name("SERVICE");
    hash->add_option("files", args->files, "The files to hash")->required()->type_name("FILE");
    addJson(hash, common);
    hash->callback([&, args] { action = [&, args] { return hashFiles(common, args->service, args->files); }; });
}

}  // namespace vxcloud::cli
