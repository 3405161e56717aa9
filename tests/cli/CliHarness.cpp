#include "cli/CliHarness.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "vxcloud/platform/Http.h"

extern char** environ;

namespace vxcloud::testing::cli {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

// Waits for the child for up to `timeout`, then kills it.
int reap(pid_t pid, std::chrono::milliseconds timeout, bool* timedOut = nullptr) {
    const auto deadline = Clock::now() + timeout;
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (done < 0 && errno != EINTR) return -1;
        if (Clock::now() > deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            if (timedOut) *timedOut = true;
            return -1;
        }
        std::this_thread::sleep_for(5ms);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

[[noreturn]] void execOrDie(const std::string& program, std::vector<std::string> args, std::vector<std::string> env) {
    args.insert(args.begin(), program);
    auto argv = pointers(args);
    auto envp = pointers(env);
    if (program.find('/') == std::string::npos) {
        ::execvpe(program.c_str(), argv.data(), envp.data());  // a tool on PATH
    } else {
        ::execve(program.c_str(), argv.data(), envp.data());
    }
    std::fprintf(stderr, "cannot run %s: %s\n", program.c_str(), std::strerror(errno));
    ::_exit(127);
}

int remainingMs(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(std::min<long long>(left, 1000));
}

}  // namespace

std::string binaryDir() {
    const char* dir = std::getenv("VXCLOUD_BIN_DIR");
    return dir && *dir ? dir : ".";
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vxcloud-cli-test-XXXXXX").string();
    if (::mkdtemp(pattern.data())) path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string pdfWith(const std::string& marker) {
    return "%PDF-1.4\n% " + marker + "\n1 0 obj\n<< /Type /Catalog >>\nendobj\ntrailer\n<< /Root 1 0 R >>\n%%EOF\n";
}

// ------------------------------------------------------------------ sandbox

SandboxProcess::SandboxProcess(const std::vector<std::string>& arguments) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        error_ = "pipe failed";
        return;
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        std::vector<std::string> env;
        for (char** e = environ; *e; ++e) env.emplace_back(*e);
        std::vector<std::string> args = {"--port", "0"};
        args.insert(args.end(), arguments.begin(), arguments.end());
        execOrDie(binaryDir() + "/vxcloud-sandbox", args, env);
    }
    ::close(out[1]);
    // The ready line: one JSON object with the base URL, providers and accounts.
    std::string line;
    const auto deadline = Clock::now() + 30s;
    char c;
    while (Clock::now() < deadline) {
        pollfd p{out[0], POLLIN, 0};
        if (::poll(&p, 1, remainingMs(deadline)) <= 0) continue;
        const ssize_t n = ::read(out[0], &c, 1);
        if (n <= 0) break;
        if (c == '\n') break;
        line += c;
    }
    ::close(out[0]);
    description_ = json::parse(line, nullptr, false);
    if (description_.is_discarded() || !description_.contains("base")) {
        error_ = "vxcloud-sandbox gave no ready line (got \"" + line + "\")";
        return;
    }
    base_ = description_["base"].get<std::string>();
}

SandboxProcess::~SandboxProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    reap(pid_, 10s);
}

std::vector<json> SandboxProcess::accounts(const std::string& provider) const {
    std::vector<json> out;
    for (const auto& account : description_.value("accounts", json::array()))
        if (account.value("provider", "") == provider) out.push_back(account);
    return out;
}

json SandboxProcess::admin(const std::string& method, const std::string& path, const json& body, int* status) const {
    HttpRequest request;
    request.method = method;
    request.url = base_ + "/admin" + path;
    request.caFile = caFile();
    if (!body.is_null()) {
        request.headers.set("Content-Type", "application/json");
        request.body = ByteBuffer::copyOf(body.dump());
    }
    const HttpResponse response = HttpClient::shared()->perform(request);
    if (status) *status = response.status;
    const json parsed = json::parse(response.body, nullptr, false);
    return parsed.is_discarded() ? json(response.body) : parsed;
}

long long SandboxProcess::requests(const std::string& route) const {
    const json stats = admin("GET", "/stats?route=" + HttpClient::urlEncode(route));
    return stats.is_object() ? stats.value("requests", 0LL) : -1;
}

std::optional<std::string> SandboxProcess::content(const std::string& provider, const std::string& path,
                                                   const std::string& account) const {
    HttpRequest request;
    request.url = base_ + "/admin/" + provider + "/content?path=" + HttpClient::urlEncode(path) +
                  (account.empty() ? "" : "&account=" + HttpClient::urlEncode(account));
    request.caFile = caFile();
    const HttpResponse response = HttpClient::shared()->perform(request);
    if (response.status != 200) return std::nullopt;
    return response.body;
}

// --------------------------------------------------------------------- home

CliHome::CliHome() = default;

std::string CliHome::recordsPath() const { return dir_.path() + "/data/vxcloud/records.sqlite3"; }
std::string CliHome::preferencesPath() const { return dir_.path() + "/config/vxcloud/preferences.json"; }

std::vector<std::string> CliHome::environment() const {
    std::map<std::string, std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string entry(*e);
        const auto eq = entry.find('=');
        if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    // Nothing of the machine's own state: no keyring, no saved sandbox, no credentials.
    for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "VXCLOUD_SANDBOX", "VXCLOUD_DROPBOX_APP_KEY",
                             "VXCLOUD_GOOGLE_CLIENT_ID", "DISPLAY", "WAYLAND_DISPLAY", "BROWSER"})
        env.erase(name);
    env["HOME"] = dir_.path();
    env["XDG_CONFIG_HOME"] = dir_.path() + "/config";
    env["XDG_DATA_HOME"] = dir_.path() + "/data";
    env["VXCLOUD_SECURE_STORE"] = "file";
    env["TERM"] = "xterm";
    for (const auto& [name, value] : extraEnv_) env[name] = value;
    std::vector<std::string> out;
    for (const auto& [name, value] : env) out.push_back(name + "=" + value);
    return out;
}

RunResult CliHome::run(const std::vector<std::string>& args, const std::string& input,
                       std::chrono::milliseconds timeout) const {
    return runProcess(binaryDir() + "/vxcloud", args, environment(), input, timeout);
}

RunResult runTool(const std::string& program, const std::vector<std::string>& args, const std::string& input) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) env.emplace_back(*e);
    return runProcess(program, args, env, input, 60s);
}

RunResult runProcess(const std::string& program, const std::vector<std::string>& args,
                     const std::vector<std::string>& env, const std::string& input, std::chrono::milliseconds timeout) {
    RunResult result;
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC)) return result;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(err[1], STDERR_FILENO);
        execOrDie(program, args, env);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    // Small inputs fit the pipe; the program reads them when it asks.
    if (!input.empty()) [[maybe_unused]] auto written = ::write(in[1], input.data(), input.size());
    ::close(in[1]);

    const auto deadline = Clock::now() + timeout;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    char buffer[8192];
    while (open > 0 && Clock::now() < deadline) {
        if (::poll(fds, 2, remainingMs(deadline)) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
            } else {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto& fd : fds)
        if (fd.fd >= 0) ::close(fd.fd);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    result.status = reap(pid, std::max(left, std::chrono::milliseconds(100)), &result.timedOut);
    return result;
}

std::vector<RunResult> CliHome::runTogether(const std::vector<std::vector<std::string>>& commands,
                                            std::chrono::milliseconds timeout) const {
    std::vector<RunResult> results(commands.size());
    std::vector<std::thread> runners;
    for (std::size_t i = 0; i < commands.size(); ++i)
        runners.emplace_back([&, i] { results[i] = run(commands[i], {}, timeout); });
    for (auto& runner : runners) runner.join();
    return results;
}

int CliHome::runKilledAfter(const std::vector<std::string>& args, std::chrono::milliseconds lifetime) const {
    const auto env = environment();
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        execOrDie(binaryDir() + "/vxcloud", args, env);
    }
    std::this_thread::sleep_for(lifetime);
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

json CliHome::runJson(const std::vector<std::string>& args, int* status) const {
    const RunResult result = run(args);
    if (status) *status = result.status;
    const json parsed = json::parse(result.out, nullptr, false);
    if (!parsed.is_discarded()) return parsed;
    // JSON lines (progress events, then the result): the last one.
    const auto end = result.out.find_last_not_of("\n");
    if (end == std::string::npos) return json();
    const auto start = result.out.rfind('\n', end);
    const json last = json::parse(result.out.substr(start == std::string::npos ? 0 : start + 1, end + 1), nullptr, false);
    return last.is_discarded() ? json() : last;
}

// ---------------------------------------------------------------------- pty

PtySession::PtySession(const CliHome& home, const std::vector<std::string>& args) {
    winsize size{};
    size.ws_row = 40;
    size.ws_col = 120;
    const auto env = home.environment();
    pid_ = ::forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) execOrDie(binaryDir() + "/vxcloud", args, env);
}

PtySession::~PtySession() {
    if (!exited_ && pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    if (master_ >= 0) ::close(master_);
}

bool PtySession::readSome(std::chrono::milliseconds wait) {
    pollfd p{master_, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(wait.count())) <= 0) return false;
    char buffer[4096];
    const ssize_t n = ::read(master_, buffer, sizeof buffer);
    if (n <= 0) return false;  // EIO once the program has ended
    output_.append(buffer, static_cast<std::size_t>(n));
    return true;
}

bool PtySession::expect(const std::string& text, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const auto found = output_.find(text, consumed_);
        if (found != std::string::npos) {
            consumed_ = found + text.size();
            return true;
        }
        if (Clock::now() > deadline) return false;
        if (!readSome(50ms)) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                exited_ = true;
                status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                while (readSome(50ms)) {
                }
                return output_.find(text, consumed_) != std::string::npos;
            }
        }
    }
}

void PtySession::sendLine(const std::string& line) {
    const std::string typed = line + "\r";
    [[maybe_unused]] auto written = ::write(master_, typed.data(), typed.size());
}

int PtySession::wait(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!exited_ && Clock::now() < deadline) {
        readSome(50ms);
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            exited_ = true;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
    }
    while (readSome(20ms)) {
    }
    return exited_ ? status_ : -1;
}

// --------------------------------------------------------------------- tmux

namespace {

// The line the pane's shell writes once vxcloud has ended: "[vxcloud ended: 0]".
constexpr const char* kExitMark = "[vxcloud ended: ";

std::string shellQuoted(const std::string& word) {
    std::string out = "'";
    for (const char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace

bool TmuxPane::available() { return runTool("tmux", {"-V"}).status == 0; }

TmuxPane::TmuxPane(const CliHome& home, const std::vector<std::string>& args, int width, int height) {
    socket_ = dir_.file("tmux.sock");
    // The pane's shell runs vxcloud in the home's environment and then writes how it ended on
    // the terminal: once that line is on the screen, so is everything vxcloud wrote. (tmux's
    // own record of a pane's exit status is not reliable for a program that ends at once.)
    std::string command = "env -i";
    for (const auto& entry : home.environment()) command += " " + shellQuoted(entry);
    command += " " + shellQuoted(std::filesystem::absolute(binaryDir() + "/vxcloud").string());
    for (const auto& arg : args) command += " " + shellQuoted(arg);
    writeFile(dir_.file("run.sh"), command + "\nprintf '" + std::string(kExitMark) + "%d]\\n' $?\n");
    // The pane stays once the shell has ended, so its last screen can be read.
    writeFile(dir_.file("tmux.conf"), "set-option -g remain-on-exit on\nset-option -g history-limit 10000\n");
    const RunResult started = tmux({"-f", dir_.file("tmux.conf"), "new-session", "-d", "-s", "vxcloud", "-x",
                                    std::to_string(width), "-y", std::to_string(height), "sh " + dir_.file("run.sh")});
    started_ = started.status == 0;
    if (!started_) error_ = "tmux new-session failed: " + started.out + started.err;
}

TmuxPane::~TmuxPane() {
    if (started_) tmux({"kill-server"});
}

RunResult TmuxPane::tmux(std::vector<std::string> args) const {
    args.insert(args.begin(), {"-S", socket_});
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e)
        if (std::string(*e).rfind("TMUX=", 0) != 0) env.emplace_back(*e);  // not the tmux the tests may run in
    return runProcess("tmux", args, env, {}, 30s);
}

std::string TmuxPane::capture() const {
    // -S -: from the start of the scrollback (tmux scrolls the screen when the program ends);
    // -J: a line the terminal wrapped is one line again.
    const RunResult shown = tmux({"capture-pane", "-p", "-J", "-S", "-", "-t", "vxcloud"});
    if (shown.status != 0) return {};
    std::string screen;
    std::istringstream lines(shown.out);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of(' ') + 1);
        screen += line + "\n";
    }
    return screen;
}

bool TmuxPane::expect(const std::string& text, std::chrono::milliseconds timeout) const {
    const auto deadline = Clock::now() + timeout;
    while (capture().find(text) == std::string::npos) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(50ms);
    }
    return true;
}

void TmuxPane::sendLine(const std::string& line) const {
    tmux({"send-keys", "-t", "vxcloud", "-l", line});
    tmux({"send-keys", "-t", "vxcloud", "Enter"});
}

std::optional<int> TmuxPane::exitStatus() const {
    const std::string screen = capture();
    const auto mark = screen.rfind(kExitMark);
    if (mark == std::string::npos) return std::nullopt;
    return std::atoi(screen.c_str() + mark + std::strlen(kExitMark));
}

int TmuxPane::wait(std::chrono::milliseconds timeout) const {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        if (const auto status = exitStatus()) return *status;
        if (Clock::now() > deadline) return -1;
        std::this_thread::sleep_for(50ms);
    }
}

bool linkForUploads(const CliHome& home, const std::string& service, const std::string& email,
                    const std::string& folder, std::string& error) {
    const std::string account = service + ":" + email;
    for (const auto& args : std::vector<std::vector<std::string>>{{"link", service, "--as", email},
                                                                  {"folder", account, folder, "--create"},
                                                                  {"settings", account, "--auto-upload", "on"}}) {
        const RunResult r = home.run(args);
        if (r.status != 0) {
            error = args.front() + " " + account + ": " + r.out + r.err;
            return false;
        }
    }
    return true;
}

// ------------------------------------------------------------------ records

std::vector<DbRecord> readRecords(const std::string& databasePath) {
    std::vector<DbRecord> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(databasePath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return rows;
    }
    sqlite3_stmt* stmt = nullptr;
    const char* sql =
        "SELECT d.path, d.name, r.account_type, r.account_id, r.record, r.folder_path FROM records r "
        "JOIN documents d ON d.id = r.document_id ORDER BY d.path, r.account_type, r.account_id";
    if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK) {
        auto text = [&](int column) {
            const auto* p = sqlite3_column_text(stmt, column);
            return p ? std::string(reinterpret_cast<const char*>(p)) : std::string();
        };
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            DbRecord row{text(0), text(1), text(2), text(3), json::parse(text(4), nullptr, false), std::nullopt};
            if (sqlite3_column_type(stmt, 5) != SQLITE_NULL) row.folder = text(5);
            rows.push_back(std::move(row));
        }
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return rows;
}

std::optional<DbRecord> recordOf(const std::vector<DbRecord>& rows, const std::string& path,
                                 const std::string& accountType, const std::string& accountId) {
    for (const auto& row : rows)
        if (row.path == path && row.accountType == accountType && row.accountId == accountId) return row;
    return std::nullopt;
}

std::string lineWith(const std::string& text, const std::string& part) {
    const auto at = text.find(part);
    if (at == std::string::npos) return {};
    const auto start = text.rfind('\n', at);
    const auto end = text.find('\n', at);
    return text.substr(start == std::string::npos ? 0 : start + 1,
                       end == std::string::npos ? std::string::npos : end - start - 1);
}

}  // namespace vxcloud::testing::cli
