#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Output.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::cli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kBarWidth = 20;

// Redraws and events come at most this often: the bars stay readable and the JSON lines few.
std::chrono::milliseconds interval(ProgressStyle style) { return style == ProgressStyle::events ? 250ms : 100ms; }

}  // namespace

std::shared_ptr<ProgressBoard> boardFor(bool json, bool quiet, int verbosity) {
    if (json) return ProgressBoard::create(ProgressStyle::events);
    if (quiet) return ProgressBoard::create(ProgressStyle::silent);
    return ProgressBoard::create(stdoutIsTerminal() && verbosity == 0 ? ProgressStyle::live : ProgressStyle::lines);
}

bool waitWhileMoving(const std::function<bool()>& arrived, std::chrono::seconds stallLimit, const ProgressBoard* board) {
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

std::shared_ptr<ProgressBoard> ProgressBoard::create(ProgressStyle style) {
    return std::shared_ptr<ProgressBoard>(new ProgressBoard(style));
}

void ProgressBoard::begin(const BoardSection& section, const std::vector<BoardRow>& rows) {
    Json start;
    {
        std::lock_guard lock(mutex_);
        section_ = section;
        rows_.clear();
        const auto now = Clock::now();
        for (const auto& given : rows) {
            Row row;
            row.row = given;
            row.row.label = printable(given.label);
            row.rate.start(now);
            rows_.push_back(std::move(row));
        }
        drawnLines_ = 0;
        active_ = true;
        if (style_ == ProgressStyle::events) {
            start = event("start", nullptr);
            start["title"] = section.title;
            Json labels = Json::array();
            for (const auto& given : rows) labels.push_back(given.label);
            start[section.rowsAre + "s"] = labels;
            if (section.expectedBytes > 0) start["bytes"] = section.expectedBytes;
        }
    }
    switch (style_) {
        case ProgressStyle::silent: return;
        case ProgressStyle::events: printJsonLine(start); return;
        default: say(printable(section.title)); redraw();
    }
}

void ProgressBoard::finishRow(const std::string& key, const std::string& text, const std::string& outcome) {
    {
        std::lock_guard lock(mutex_);
        for (auto& row : rows_) {
            if (row.row.key != key) continue;
            row.finalText = printable(text);
            row.outcome = outcome;
        }
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
        lastActivity_ = Clock::now();
        for (auto& row : rows_) {
            if (row.row.key != key) continue;
            // Increments since the previous report; the sum is the bytes sent.
            row.sent += std::max<std::int64_t>(0, currentUploadedBytes);
            if (expectedTotalBytes > 0) row.total = expectedTotalBytes;
            row.rate.add(lastActivity_, row.sent);
        }
    }
    requestRedraw();
}

std::int64_t ProgressBoard::bytesReported(const std::string& key) const {
    std::lock_guard lock(mutex_);
    for (const auto& row : rows_)
        if (row.row.key == key) return row.sent;
    return 0;
}

void ProgressBoard::requestRedraw() {
    if (style_ == ProgressStyle::silent || style_ == ProgressStyle::lines) return;
    Clock::duration delay{0};
    {
        std::lock_guard lock(mutex_);
        if (redrawPending_) return;
        redrawPending_ = true;
        const auto due = lastDraw_ + interval(style_);
        const auto now = Clock::now();
        if (due > now) delay = due - now;
    }
    std::weak_ptr<ProgressBoard> weak = weak_from_this();
    DispatchQueue::main()->asyncAfter(delay, [weak] {
        if (auto board = weak.lock()) board->redraw();
    });
}

std::string ProgressBoard::renderRow(const Row& row, std::size_t labelWidth, std::size_t width) const {
    const std::string line = "  " + row.row.label + std::string(labelWidth - displayWidth(row.row.label) + 2, ' ');
    if (!row.finalText.empty()) return fitWidth(line + row.finalText, width);
    const std::int64_t total = totalOf(row);
    if (row.sent == 0) return fitWidth(line + "waiting", width);
    const double fraction = total > 0 ? std::min(1.0, static_cast<double>(row.sent) / static_cast<double>(total)) : 0.0;
    const int filled = static_cast<int>(fraction * kBarWidth + 0.5);
    const std::string bar = line + "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') + "] " +
                            std::to_string(static_cast<int>(fraction * 100.0 + 0.5)) + "%  ";
    if (total > 0 && row.sent >= total) {
        // The last byte is out; some services take a while to put a large upload together.
        const std::string who = row.row.service.empty() ? "the service" : row.row.service;
        return fitWidth(bar + humanBytes(total) + " sent; waiting for " + who + " to finish storing it", width);
    }
    std::string pace;
    if (const auto rate = row.rate.bytesPerSecond()) {
        pace = rateText(*rate);
        if (const auto left = row.rate.secondsLeft(total)) pace += "  " + durationText(*left) + " left";
    }
    // The rate and the time left matter more than the byte counts on a narrow terminal.
    const std::string full = bar + humanBytes(row.sent) + " of " + humanBytes(total) + (pace.empty() ? "" : "  " + pace);
    if (displayWidth(full) <= width || pace.empty()) return fitWidth(full, width);
    return fitWidth(bar + pace, width);
}

Json ProgressBoard::event(const char* name, const Row* row) const {
    Json out = {{"event", name}};
    for (const auto& [key, value] : section_.about.items()) out[key] = value;
    if (row) out[section_.rowsAre] = row->row.label;
    return out;
}

std::string ProgressBoard::events() {
    std::string out;
    const auto line = [&out](const Json& event) {
        out += event.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    };
    for (auto& row : rows_) {
        if (row.printed) continue;
        const std::int64_t total = totalOf(row);
        if (row.sent > 0 && row.sent != row.reportedSent) {
            Json progress = event("progress", &row);
            progress["sent"] = row.sent;
            progress["total"] = total;
            if (const auto rate = row.rate.bytesPerSecond()) {
                progress["bytesPerSecond"] = static_cast<std::int64_t>(*rate);
                if (const auto left = row.rate.secondsLeft(total)) progress["secondsLeft"] = *left;
            }
            line(progress);
            row.reportedSent = row.sent;
        }
        if (total > 0 && row.sent >= total && !row.sentEventOut) {
            line(event("sent", &row));
            row.sentEventOut = true;
        }
        if (!row.finalText.empty()) {
            Json finished = event("finished", &row);
            if (!row.outcome.empty()) finished["outcome"] = row.outcome;
            finished["text"] = row.finalText;
            line(finished);
            row.printed = true;
        }
    }
    return out;
}

void ProgressBoard::redraw() {
    if (style_ == ProgressStyle::silent) return;
    std::string out;
    {
        std::lock_guard lock(mutex_);
        redrawPending_ = false;
        lastDraw_ = Clock::now();
        if (!active_) return;
        std::size_t labelWidth = 0;
        for (const auto& row : rows_) labelWidth = std::max(labelWidth, displayWidth(row.row.label));
        if (style_ == ProgressStyle::events) {
            out = events();
        } else if (style_ == ProgressStyle::live) {
            if (drawnLines_ > 0) out += "\x1b[" + std::to_string(drawnLines_) + "A";
            const std::size_t width = static_cast<std::size_t>(terminalWidth() - 1);
            for (const auto& row : rows_) out += "\r\x1b[2K" + renderRow(row, labelWidth, width) + "\n";
            drawnLines_ = rows_.size();
        } else {
            // Plain lines: each row once, when its outcome is known.
            for (auto& row : rows_) {
                if (row.finalText.empty() || row.printed) continue;
                out += renderRow(row, labelWidth, std::string::npos) + "\n";
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
