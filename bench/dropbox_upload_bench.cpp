// Uploads a 128 MiB document through the Dropbox session to the sandbox and prints the
// throughput next to curl sending the same file to the same endpoint in the same run, and
// this process's peak memory. Targets: at least 0.9x curl's throughput; peak memory at most
// the document's size + 64 MiB.
//
// The sandbox runs in a child process, so that what it stores does not count towards this
// process's memory. Usage: dropbox_upload_bench [size-in-MiB] [rounds]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/SecureStore.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;
using namespace vxcloud;

constexpr double kMiB = 1024.0 * 1024.0;

// Runs the sandbox in a child; the child answers with its description on `out` and stops
// when `in` closes.
pid_t startSandboxProcess(json& description) {
    int toParent[2];
    int toChild[2];
    if (pipe(toParent) != 0 || pipe(toChild) != 0) return -1;
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        close(toParent[0]);
        close(toChild[1]);
        sandbox::Sandbox box;
        std::string error;
        json answer;
        if (box.start(0, "127.0.0.1", &error)) {
            const auto account = box.account("dropbox");
            answer = {{"endpoints", box.endpoints("dropbox")},
                      {"userId", account.userId},
                      {"email", account.email},
                      {"accessToken", account.accessToken},
                      {"refreshToken", account.refreshToken}};
        } else {
            answer = {{"error", error}};
        }
        const std::string line = answer.dump() + "\n";
        if (write(toParent[1], line.data(), line.size()) < 0) _exit(1);
        char byte;
        while (read(toChild[0], &byte, 1) > 0) {
        }
        box.stop();
        _exit(0);
    }
    close(toParent[1]);
    close(toChild[0]);
    // The write end stays open in this process until it exits, which stops the child.
    std::string line;
    char c;
    while (read(toParent[0], &c, 1) == 1 && c != '\n') line += c;
    close(toParent[0]);
    description = json::parse(line, nullptr, false);
    return pid;
}

bool writeDocument(const std::string& path, std::size_t size) {
    std::ofstream out(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    std::uint32_t state = 0x9e3779b9u;
    for (std::size_t written = 0; written < size;) {
        for (char& b : block) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            b = static_cast<char>(state);
        }
        const std::size_t n = std::min(block.size(), size - written);
        out.write(block.data(), static_cast<std::streamsize>(n));
        written += n;
    }
    return static_cast<bool>(out);
}

class Outcome : public VXCloudSessionDelegate {
public:
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                    const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&) override {
        finish(true);
    }
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>& error) override {
        std::cerr << "upload failed: " << error->getErrorCode() << "\n";
        finish(false);
    }
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                  const VXCloudFileList&) override {}

    bool wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return done_; });
        done_ = false;
        return ok_;
    }

private:
    void finish(bool ok) {
        std::lock_guard lock(mutex_);
        ok_ = ok;
        done_ = true;
        changed_.notify_all();
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool done_ = false;
    bool ok_ = false;
};

double sessionUpload(const std::shared_ptr<VXCloudAccount>& account, const std::string& path) {
    auto session = VXCloudDropboxSession::initWithCloudAccount(account);
    if (!session) return -1;
    auto outcome = std::make_shared<Outcome>();
    session->setCloudSessionDelegate(outcome);
    auto data = ByteBuffer::mapFile(path);
    if (!data) return -1;
    auto file = std::make_shared<VXCloudFile>("bench.pdf", false, false);
    file->fileData = std::move(*data);
    auto root = session->rootFolder();
    const auto start = Clock::now();
    session->uploadWithCloudFile(file, root, true);
    const bool ok = outcome->wait();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return ok ? seconds : -1;
}

double curlUpload(const std::string& url, const std::string& token, const std::string& path) {
    const std::string arg = R"({"path":"/bench.pdf","mode":"overwrite","autorename":false,"mute":false,"strict_conflict":false})";
    const std::string command = "curl -sS -o /dev/null -w '%{http_code}' -X POST '" + url +
                                "' -H 'Authorization: Bearer " + token +
                                "' -H 'Content-Type: application/octet-stream' -H 'Expect:' -H 'Dropbox-API-Arg: " +
                                arg + "' -T '" + path + "'";
    const auto start = Clock::now();
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    char status[16] = {};
    const std::size_t n = fread(status, 1, sizeof status - 1, pipe);
    const int rc = pclose(pipe);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (rc != 0 || std::string(status, n) != "200") {
        std::cerr << "curl failed (status " << std::string(status, n) << ")\n";
        return -1;
    }
    return seconds;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t sizeMiB = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 128;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
    const std::size_t size = sizeMiB * 1024 * 1024;

    json sandbox;
    const pid_t child = startSandboxProcess(sandbox);
    if (child < 0 || !sandbox.is_object() || sandbox.contains("error")) {
        std::cerr << "the sandbox did not start: " << (sandbox.is_object() ? sandbox.dump() : "no answer") << "\n";
        return 1;
    }

    const auto folder = std::filesystem::temp_directory_path() / ("vxcloud-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const std::string document = (folder / "bench.pdf").string();
    SecureStore::setShared(SecureStore::openFile((folder / "secure-store.json").string()));

    VXCloudServiceEndpoints endpoints;
    endpoints.apiBase = sandbox["endpoints"]["api"];
    endpoints.contentBase = sandbox["endpoints"]["content"];
    endpoints.tokenUrl = sandbox["endpoints"]["token"];
    VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, endpoints);
    VXCloudOAuthToken token;
    token.accessToken = sandbox["accessToken"];
    token.refreshToken = sandbox["refreshToken"];
    VXCloudTokenStore::save(VXCloudService::dropbox, sandbox["userId"], token);
    auto account = std::make_shared<VXCloudAccount>(sandbox["userId"], sandbox["email"], VXCloudService::dropbox);

    int status = 0;
    if (!writeDocument(document, size)) {
        std::cerr << "cannot write the document\n";
        status = 1;
    } else {
        std::vector<double> ours;
        std::vector<double> theirs;
        const std::string url = endpoints.contentBase + "/2/files/upload";
        for (int round = 0; round < rounds && status == 0; ++round) {
            const double a = sessionUpload(account, document);
            const double b = curlUpload(url, token.accessToken, document);
            if (a < 0 || b < 0) status = 1;
            ours.push_back(a);
            theirs.push_back(b);
        }
        if (status == 0) {
            rusage usage{};
            getrusage(RUSAGE_SELF, &usage);
            const double peakMiB = static_cast<double>(usage.ru_maxrss) / 1024.0;
            const double oursMiBs = static_cast<double>(size) / kMiB / median(ours);
            const double curlMiBs = static_cast<double>(size) / kMiB / median(theirs);
            const double ratio = oursMiBs / curlMiBs;
            const double budget = static_cast<double>(sizeMiB) + 64.0;
            std::printf("document                 %zu MiB, %d rounds (median)\n", sizeMiB, rounds);
            std::printf("vxcloud Dropbox session  %8.1f MiB/s\n", oursMiBs);
            std::printf("curl, same endpoint      %8.1f MiB/s\n", curlMiBs);
            std::printf("ratio                    %8.2f x   (target >= 0.90: %s)\n", ratio,
                        ratio >= 0.9 ? "met" : "MISSED");
            std::printf("peak memory (this proc)  %8.1f MiB (target <= %.0f MiB: %s)\n", peakMiB, budget,
                        peakMiB <= budget ? "met" : "MISSED");
        }
    }

    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    return status;
}
