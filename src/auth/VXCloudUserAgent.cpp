// The stock user agents: the desktop's browser through xdg-open, and printing the address.
#include "vxcloud/auth/VXCloudUserAgent.h"

#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <ostream>
#include <thread>
#include <vector>

#include "vxcloud/platform/Log.h"

extern char** environ;

namespace vxcloud {
namespace {

using namespace std::chrono_literals;

// xdg-open normally hands the address to the running browser and exits at once; one that
// is still running after this is taken as a browser that opened.
constexpr auto kLauncherWait = 10s;

bool hasGraphicalSession() {
    const char* x11 = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return (x11 && *x11) || (wayland && *wayland);
}

class SystemBrowser final : public VXCloudUserAgent {
public:
    bool open(const std::string& url) override {
        // Without a graphical session xdg-open would start a text browser in our terminal.
        if (!hasGraphicalSession()) return false;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        std::string program = "xdg-open";
        std::string argument = url;
        std::vector<char*> argv = {program.data(), argument.data(), nullptr};
        pid_t pid = 0;
        // The address goes in as one argument, never through a shell.
        const int spawned = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            log::info("auth", "xdg-open could not be started");
            return false;
        }
        const auto deadline = std::chrono::steady_clock::now() + kLauncherWait;
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            const pid_t done = waitpid(pid, &status, WNOHANG);
            if (done == pid) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
            if (done < 0) return false;
            std::this_thread::sleep_for(50ms);
        }
        // Still running: let it finish on its own and reap it then.
        std::thread([pid] {
            int status = 0;
            waitpid(pid, &status, 0);
        }).detach();
        return true;
    }
};

class Printing final : public VXCloudUserAgent {
public:
    explicit Printing(std::ostream& out) : out_(out) {}

    bool open(const std::string& url) override {
        std::lock_guard lock(mutex_);
        out_ << "Open this address in a web browser to sign in:\n\n  " << url << "\n" << std::endl;
        return static_cast<bool>(out_);
    }

private:
    std::mutex mutex_;
    std::ostream& out_;
};

class FirstThatOpens final : public VXCloudUserAgent {
public:
    explicit FirstThatOpens(std::vector<std::shared_ptr<VXCloudUserAgent>> agents) : agents_(std::move(agents)) {}

    bool open(const std::string& url) override {
        for (const auto& agent : agents_) {
            if (agent->open(url)) return true;
        }
        return false;
    }

private:
    std::vector<std::shared_ptr<VXCloudUserAgent>> agents_;
};

}  // namespace

VXCloudUserAgent::~VXCloudUserAgent() = default;

std::shared_ptr<VXCloudUserAgent> VXCloudUserAgent::systemBrowser() { return std::make_shared<SystemBrowser>(); }

std::shared_ptr<VXCloudUserAgent> VXCloudUserAgent::printing(std::ostream& out) {
    return std::make_shared<Printing>(out);
}

std::shared_ptr<VXCloudUserAgent> VXCloudUserAgent::browserOrPrinting(std::ostream& out) {
    return std::make_shared<FirstThatOpens>(
        std::vector<std::shared_ptr<VXCloudUserAgent>>{systemBrowser(), printing(out)});
}

}  // namespace vxcloud
