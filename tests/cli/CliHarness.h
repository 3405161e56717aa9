#pragma once
// Drives the built binaries as a person would: `vxcloud` with plain pipes or on a
// pseudo-terminal, against a `vxcloud-sandbox` process, each test in a home of its own.
// The binaries are found in the working directory (ctest runs tests in the build folder).
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vxcloud::testing::cli {

using nlohmann::json;
using namespace std::chrono_literals;

// The folder holding vxcloud and vxcloud-sandbox ($VXCLOUD_BIN_DIR, else ".").
std::string binaryDir();

// A temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void writeFile(const std::string& path, const std::string& bytes);
std::string readFile(const std::string& path);

struct RunResult {
    int status = -1;  // the exit status; -1 when killed
    bool timedOut = false;
    std::string out;
    std::string err;
};

// A running vxcloud-sandbox on a free loopback port, started with `arguments` besides.
class SandboxProcess {
public:
    explicit SandboxProcess(const std::vector<std::string>& arguments = {});
    ~SandboxProcess();
    SandboxProcess(const SandboxProcess&) = delete;
    SandboxProcess& operator=(const SandboxProcess&) = delete;

    bool ok() const { return pid_ > 0 && !base_.empty(); }
    const std::string& error() const { return error_; }
    const std::string& baseUrl() const { return base_; }
    const json& description() const { return description_; }
    // With --tls: the CA file its ready line names.
    std::string caFile() const { return description_.value("ca_file", ""); }
    // The provider's seeded accounts.
    std::vector<json> accounts(const std::string& provider) const;

    // The admin API: GET or POST (JSON body) under /admin; the parsed answer and status.
    json admin(const std::string& method, const std::string& path, const json& body = json(), int* status = nullptr) const;
    // Requests the sandbox has seen on a route ("dropbox/files/upload").
    long long requests(const std::string& route) const;
    std::optional<std::string> content(const std::string& provider, const std::string& path,
                                       const std::string& account = {}) const;

private:
    pid_t pid_ = -1;
    std::string base_;
    std::string error_;
    json description_;
};

// Runs `program` (a path, or a tool's name looked up on PATH) with `env`, plain pipes and
// `input` as its stdin, killing it after `timeout`.
RunResult runProcess(const std::string& program, const std::vector<std::string>& args,
                     const std::vector<std::string>& env, const std::string& input, std::chrono::milliseconds timeout);
// A tool (bash, groff, ...) in the tests' own environment.
RunResult runTool(const std::string& program, const std::vector<std::string>& args, const std::string& input = {});

// One person's machine: its own XDG folders and secure store, and the CLI run in them.
class CliHome {
public:
    CliHome();
    const std::string& path() const { return dir_.path(); }
    std::string file(const std::string& name) const { return dir_.file(name); }
    std::string recordsPath() const;
    std::string preferencesPath() const;

    // Runs vxcloud with plain pipes; `input` is its stdin.
    RunResult run(const std::vector<std::string>& args, const std::string& input = {},
                  std::chrono::milliseconds timeout = 120s) const;
    // Runs the command lines at once, each in a process of its own started together; their
    // results, in the same order.
    std::vector<RunResult> runTogether(const std::vector<std::vector<std::string>>& commands,
                                       std::chrono::milliseconds timeout = 120s) const;
    // The same, expecting --json output on stdout: one JSON document, or JSON lines (then
    // the last line, the result).
    json runJson(const std::vector<std::string>& args, int* status = nullptr) const;
    // Starts vxcloud with its output discarded and kills it with SIGKILL after `lifetime`
    // (unless it ended before); its exit status, or -1 when it was killed.
    int runKilledAfter(const std::vector<std::string>& args, std::chrono::milliseconds lifetime) const;
    std::vector<std::string> environment() const;

    void setEnv(const std::string& name, const std::string& value) { extraEnv_[name] = value; }

private:
    TempDir dir_;
    std::map<std::string, std::string> extraEnv_;
};

// vxcloud on a pseudo-terminal, driven by waiting for texts and typing lines.
class PtySession {
public:
    PtySession(const CliHome& home, const std::vector<std::string>& args);
    ~PtySession();
    PtySession(const PtySession&) = delete;
    PtySession& operator=(const PtySession&) = delete;

    // Waits until `text` has appeared in the output since the last match; false on timeout.
    bool expect(const std::string& text, std::chrono::milliseconds timeout = 60s);
    void sendLine(const std::string& line);
    // Waits for the program to end; its exit status (-1 on timeout or signal).
    int wait(std::chrono::milliseconds timeout = 60s);
    // Everything the terminal showed so far.
    const std::string& output() const { return output_; }

private:
    bool readSome(std::chrono::milliseconds wait);

    pid_t pid_ = -1;
    int master_ = -1;
    std::string output_;
    std::size_t consumed_ = 0;
    int status_ = -1;
    bool exited_ = false;
};

// vxcloud in a tmux pane, on a tmux server of its own: what a person's terminal shows, screen
// by screen, with the terminal's own line editing and redrawing.
class TmuxPane {
public:
    static bool available();

    TmuxPane(const CliHome& home, const std::vector<std::string>& args, int width = 120, int height = 30);
    ~TmuxPane();
    TmuxPane(const TmuxPane&) = delete;
    TmuxPane& operator=(const TmuxPane&) = delete;

    bool ok() const { return started_; }
    const std::string& error() const { return error_; }
    // The screen as it is now with the lines scrolled off it, a line per line of text (wrapped
    // ones joined), without trailing spaces; empty once the server is gone.
    std::string capture() const;
    // Waits until the screen shows `text`; false on timeout.
    bool expect(const std::string& text, std::chrono::milliseconds timeout = 60s) const;
    void sendLine(const std::string& line) const;
    // vxcloud's exit status once it has ended (the screen then ends with a line saying so).
    std::optional<int> exitStatus() const;
    // Waits for it to end; its exit status, -1 on timeout.
    int wait(std::chrono::milliseconds timeout = 60s) const;

private:
    RunResult tmux(std::vector<std::string> args) const;

    TempDir dir_;
    std::string socket_;
    std::string error_;
    bool started_ = false;
};

// Links the sandbox account of `service` ("dropbox", "box", ...) with this e-mail, gives it
// `folder` (created) and turns its automatic upload on; false (and why) when a step failed.
bool linkForUploads(const CliHome& home, const std::string& service, const std::string& email,
                    const std::string& folder, std::string& error);

// The records database as rows, read straight from SQLite.
struct DbRecord {
    std::string path;
    std::string name;
    std::string accountType;
    std::string accountId;
    json record;
    std::optional<std::string> folder;
};
std::vector<DbRecord> readRecords(const std::string& databasePath);
// The rows of one document (by path) and account type.
std::optional<DbRecord> recordOf(const std::vector<DbRecord>& rows, const std::string& path,
                                 const std::string& accountType, const std::string& accountId);

// A small valid PDF whose text carries `marker`.
std::string pdfWith(const std::string& marker);

inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The line of `text` holding `part`, or "".
std::string lineWith(const std::string& text, const std::string& part);

}  // namespace vxcloud::testing::cli
