#pragma once
// One row per account while a document is on its way: a live bar on a terminal, plain
// lines otherwise. Sessions report byte increments from their own threads; the rows are
// drawn on the main thread.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

class ProgressBoard : public VXCloudProgressDelegate, public std::enable_shared_from_this<ProgressBoard> {
public:
    // `live`: draw bars in place (stdout is a terminal); otherwise only final lines.
    // `quiet`: draw nothing (output for scripts).
    static std::shared_ptr<ProgressBoard> create(bool live, bool quiet);

    // Starts a section: a title line and one row per account (key, label).
    void begin(const std::string& title, const std::vector<std::pair<std::string, std::string>>& rows,
               std::int64_t expectedBytes);
    // A row's final text ("uploaded", "failed: ..."); shown in place of its bar.
    void finishRow(const std::string& key, const std::string& text);
    // Ends the section: rows without a final text keep their last state.
    void end();

    void cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>& session,
                                          std::int64_t currentUploadedBytes, std::int64_t expectedTotalBytes) override;

    // Bytes reported for the row so far (for summaries).
    std::int64_t bytesReported(const std::string& key) const;
    // When bytes last moved for any row: a wait for answers goes on while they do.
    std::chrono::steady_clock::time_point lastActivity() const;

private:
    ProgressBoard(bool live, bool quiet) : live_(live), quiet_(quiet) {}

    struct Row {
        std::string key;
        std::string label;
        std::int64_t sent = 0;
        std::int64_t total = 0;
        std::string finalText;
        bool printed = false;  // plain mode: the final line is out
    };
    void requestRedraw();
    void redraw();  // main thread only
    std::string renderRow(const Row& row, std::size_t labelWidth) const;

    const bool live_;
    const bool quiet_;
    mutable std::mutex mutex_;
    std::vector<Row> rows_;
    std::int64_t expected_ = 0;
    std::size_t drawnLines_ = 0;
    bool redrawPending_ = false;
    bool active_ = false;
    std::chrono::steady_clock::time_point lastActivity_ = std::chrono::steady_clock::now();
};

// Runs the main queue until `arrived`, for as long as anything moves on the board, however
// long a transfer that keeps moving takes. The component fails a request that stands still
// for `stallLimit` and may try it a few times, so it answers well within the quiet time
// allowed here; this only guards against an answer that never comes. Whether it arrived.
bool waitWhileMoving(const std::function<bool()>& arrived, std::chrono::seconds stallLimit, const ProgressBoard* board);

}  // namespace vxcloud::cli
