#pragma once
// One row per account (or per document, for moves) while a job is under way: a live bar on a
// terminal with the rate and the time left, plain lines in logs, JSON lines for scripts, or
// nothing (-q). Sessions report byte increments from their own threads; rows are drawn and
// events written on the main thread.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "TransferRate.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

enum class ProgressStyle {
    live,    // bars redrawn in place (stdout is a terminal)
    lines,   // each row's outcome once, as a line
    silent,  // nothing (-q)
    events,  // JSON lines on stdout (--json)
};

// A job's part shown as one group of rows.
struct BoardSection {
    std::string title;                  // "Uploading a.pdf (1.0 MiB)"
    Json about = Json::object();        // what every event of the section carries: {"action", "document"}
    std::string rowsAre = "account";    // what a row is, the events' key for its label
    std::int64_t expectedBytes = 0;     // per row; 0 when nothing is transferred (moves)
};

struct BoardRow {
    std::string key;
    std::string label;
    std::string service;  // who finishes the upload once every byte is out ("Box"); may be empty
};

class ProgressBoard : public VXCloudProgressDelegate, public std::enable_shared_from_this<ProgressBoard> {
public:
    static std::shared_ptr<ProgressBoard> create(ProgressStyle style);

    ProgressStyle style() const { return style_; }

    void begin(const BoardSection& section, const std::vector<BoardRow>& rows);
    // A row's final text ("uploaded as a.pdf", "failed: ..."), shown in place of its bar;
    // `outcome` is the word scripts read ("done", "unchanged", "failed", ...).
    void finishRow(const std::string& key, const std::string& text, const std::string& outcome = {});
    // Ends the section: rows without a final text keep their last state.
    void end();

    void cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>& session,
                                          std::int64_t currentUploadedBytes, std::int64_t expectedTotalBytes) override;

    // Bytes reported for the row so far (for summaries).
    std::int64_t bytesReported(const std::string& key) const;
    // When bytes last moved for any row: a wait for answers goes on while they do.
    std::chrono::steady_clock::time_point lastActivity() const;

private:
    explicit ProgressBoard(ProgressStyle style) : style_(style) {}

    struct Row {
        BoardRow row;
        std::int64_t sent = 0;
        std::int64_t total = 0;
        TransferRate rate;
        std::string finalText;
        std::string outcome;
        bool printed = false;          // lines: the final line is out; events: the last event is out
        bool sentEventOut = false;     // events: "sent" is out
        std::int64_t reportedSent = -1;  // events: what the last progress event said
    };
    void requestRedraw();
    void redraw();  // main thread only
    // The row's line, cut to `width` printed characters.
    std::string renderRow(const Row& row, std::size_t labelWidth, std::size_t width) const;
    std::string events();  // under the lock
    Json event(const char* name, const Row* row) const;
    std::int64_t totalOf(const Row& row) const { return row.total > 0 ? row.total : section_.expectedBytes; }

    const ProgressStyle style_;
    mutable std::mutex mutex_;
    BoardSection section_;
    std::vector<Row> rows_;
    std::size_t drawnLines_ = 0;
    bool redrawPending_ = false;
    bool active_ = false;
    std::chrono::steady_clock::time_point lastDraw_{};
    std::chrono::steady_clock::time_point lastActivity_ = std::chrono::steady_clock::now();
};

// The board for a command's options: events under --json, nothing under -q, bars on a
// terminal (unless -v prints requests there), lines otherwise.
std::shared_ptr<ProgressBoard> boardFor(bool json, bool quiet, int verbosity);

// Runs the main queue until `arrived`, for as long as anything moves on the board, however
// long a transfer that keeps moving takes. The component fails a request that stands still
// for `stallLimit` and may try it a few times, so it answers well within the quiet time
// allowed here; this only guards against an answer that never comes. Whether it arrived.
bool waitWhileMoving(const std::function<bool()>& arrived, std::chrono::seconds stallLimit, const ProgressBoard* board);

}  // namespace vxcloud::cli
