#include "Progress.h"

#include <algorithm>
#include <iostream>

#include "Output.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::cli {

namespace {
constexpr int kBarWidth = 20;
}

bool waitWhileMoving(const std::function<bool()>& arrived, std::chrono::seconds stallLimit, const ProgressBoard* board) {
    using Clock = std::chrono::steady_clock;
    const auto limit = std::chrono::duration_cast<Clock::duration>(stallLimit * 5 + std::chrono::seconds(30));
    auto quietSince = Clock::now();
    for (;;) {
        if (board) quietSince = std::max(quietSince, board->lastActivity());
        const auto deadline = quietSince + limit;
        const auto now = Clock::now();
        if (now >= deadline) return arrived();
        const auto slice = std::min<Clock::duration>(deadline - now, std::chrono::seconds(1));
        if (DispatchQueue::main()->runUntil(arrived, std::chrono::duration_cast<std::chrono::milliseconds>(slice))) {
            return true;
        }
    }
}

std::shared_ptr<ProgressBoard> ProgressBoard::create(bool live, bool quiet) {
    return std::shared_ptr<ProgressBoard>(new ProgressBoard(live, quiet));
}

void ProgressBoard::begin(const std::string& title, const std::vector<std::pair<std::string, std::string>>& rows,
                          std::int64_t expectedBytes) {
    {
        std::lock_guard lock(mutex_);
        rows_.clear();
        for (const auto& [key, label] : rows) {
            Row row;
            row.key = key;
            row.label = label;
            rows_.push_back(std::move(row));
        }
        expected_ = expectedBytes;
        drawnLines_ = 0;
        active_ = true;
    }
    if (quiet_) return;
    say(title);
    redraw();
}

void ProgressBoard::finishRow(const std::string& key, const std::string& text) {
    {
        std::lock_guard lock(mutex_);
        for (auto& row : rows_)
            if (row.key == key) row.finalText = text;
    }
    redraw();
}

void ProgressBoard::end() {
    redraw();
    std::lock_guard lock(mutex_);
    active_ = false;
    drawnLines_ = 0;
}

void ProgressBoard::cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>& session,
                                                     std::int64_t currentUploadedBytes, std::int64_t expectedTotalBytes) {
    const auto account = session ? session->cloudAccount() : nullptr;
    if (!account) return;
    const std::string key = account->key();
    {
        std::lock_guard lock(mutex_);
        lastActivity_ = std::chrono::steady_clock::now();
        for (auto& row : rows_) {
            if (row.key != key) continue;
            // Increments since the previous report; the sum is the bytes sent.
            row.sent += std::max<std::int64_t>(0, currentUploadedBytes);
            if (expectedTotalBytes > 0) row.total = expectedTotalBytes;
        }
    }
    requestRedraw();
}

std::int64_t ProgressBoard::bytesReported(const std::string& key) const {
    std::lock_guard lock(mutex_);
    for (const auto& row : rows_)
        if (row.key == key) return row.sent;
    return 0;
}

void ProgressBoard::requestRedraw() {
    if (quiet_ || !live_) return;
    {
        std::lock_guard lock(mutex_);
        if (redrawPending_) return;
        redrawPending_ = true;
    }
    std::weak_ptr<ProgressBoard> weak = weak_from_this();
    DispatchQueue::main()->async([weak] {
        if (auto board = weak.lock()) board->redraw();
    });
}

std::string ProgressBoard::renderRow(const Row& row, std::size_t labelWidth) const {
    std::string line = "  " + row.label + std::string(labelWidth - displayWidth(row.label) + 2, ' ');
    if (!row.finalText.empty()) return line + row.finalText;
    const std::int64_t total = row.total > 0 ? row.total : expected_;
    if (row.sent == 0) return line + "waiting";
    const double fraction = total > 0 ? std::min(1.0, static_cast<double>(row.sent) / static_cast<double>(total)) : 0.0;
    const int filled = static_cast<int>(fraction * kBarWidth + 0.5);
    line += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') + "] ";
    line += std::to_string(static_cast<int>(fraction * 100.0 + 0.5)) + "%  " + humanBytes(std::min(row.sent, total));
    return line;
}

void ProgressBoard::redraw() {
    if (quiet_) return;
    std::string out;
    {
        std::lock_guard lock(mutex_);
        redrawPending_ = false;
        if (!active_) return;
        std::size_t labelWidth = 0;
        for (const auto& row : rows_) labelWidth = std::max(labelWidth, displayWidth(row.label));
        if (live_) {
            if (drawnLines_ > 0) out += "\x1b[" + std::to_string(drawnLines_) + "A";
            const std::size_t width = static_cast<std::size_t>(terminalWidth() - 1);
            for (const auto& row : rows_) out += "\r\x1b[2K" + fitWidth(renderRow(row, labelWidth), width) + "\n";
            drawnLines_ = rows_.size();
        } else {
            // Plain lines: each row once, when its outcome is known.
            for (auto& row : rows_) {
                if (row.finalText.empty() || row.printed) continue;
                out += renderRow(row, labelWidth) + "\n";
                row.printed = true;
            }
        }
    }
    std::cout << out << std::flush;
}

std::chrono::steady_clock::time_point ProgressBoard::lastActivity() const {
    std::lock_guard lock(mutex_);
    return lastActivity_;
}

}  // namespace vxcloud::cli
