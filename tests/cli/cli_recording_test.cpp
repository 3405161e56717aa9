// A large upload as a person's terminal shows it: vxcloud runs in a tmux pane whose screen is
// captured while the upload goes on, and the recording is checked afterwards.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <thread>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t n = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++n;
    return n;
}

// The screen's line that shows `label`'s row, or "".
std::string rowOf(const std::string& screen, const std::string& label) {
    std::istringstream in(screen);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("  " + label + " ", 0) == 0) return line;
    return {};
}

TEST(CliRecording, LargeUploadShowsABarWithRateAndTimeLeftPerAccount) {
    if (!TmuxPane::available()) GTEST_SKIP() << "tmux is not installed";
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    std::vector<std::string> labels;
    for (const auto& [service, shown] : {std::pair{"dropbox", "Dropbox"}, std::pair{"box", "Box"}}) {
        for (const auto& seeded : sandbox.accounts(service)) {
            const std::string email = seeded["email"].get<std::string>();
            std::string error;
            ASSERT_TRUE(linkForUploads(home, service, email, "/Scans", error)) << error;
            labels.push_back(std::string(shown) + ":" + email);
        }
    }
    ASSERT_EQ(labels.size(), 4u);

    // Every request body is read at 25 MiB/s, so each account's 100 MiB take a few seconds
    // however fast the machine is.
    for (const char* provider : {"dropbox/*", "box/*"}) {
        int status = 0;
        sandbox.admin("POST", "/faults", json{{"route", provider}, {"fault", "read-rate=26214400"}, {"times", 1000}},
                      &status);
        ASSERT_EQ(status, 200);
    }
    const std::string path = home.file("big.pdf");
    writeFile(path, pdfWith("large") + std::string(100 << 20, ' ') + "%%EOF\n");

    TmuxPane pane(home, {"upload", path}, 160, 20);
    ASSERT_TRUE(pane.ok()) << pane.error();
    std::vector<std::string> frames;
    const auto deadline = std::chrono::steady_clock::now() + 240s;
    while (!pane.exitStatus() && std::chrono::steady_clock::now() < deadline) {
        const std::string screen = pane.capture();
        if (frames.empty() || screen != frames.back()) frames.push_back(screen);
        std::this_thread::sleep_for(100ms);
    }
    const int status = pane.wait(1s);
    frames.push_back(pane.capture());
    std::string recording;
    for (std::size_t i = 0; i < frames.size(); ++i) recording += "--- frame " + std::to_string(i) + "\n" + frames[i];
    ASSERT_EQ(status, 0) << recording;

    // While it runs, each account's row is a bar with how fast it goes and how long is left,
    // and the bar never goes back.
    const std::regex moving(R"(\[[#-]{20}\] +\d+%.*  [0-9.]+ (B|KiB|MiB)/s  (\d+ s|\d+ min \d\d s|\d+ h \d\d min) left$)");
    const std::regex percent(R"(\[[#-]{20}\] +(\d+)%)");
    for (const auto& label : labels) {
        bool seen = false;
        int shown = 0;
        for (const auto& frame : frames) {
            const std::string row = rowOf(frame, label);
            seen = seen || std::regex_search(row, moving);
            std::smatch bar;
            if (!std::regex_search(row, bar, percent)) continue;
            EXPECT_GE(std::stoi(bar[1]), shown) << label << ":\n" << recording;
            shown = std::stoi(bar[1]);
        }
        EXPECT_TRUE(seen) << label << " never showed a bar with a rate and the time left:\n" << recording;
    }
    // The rows were redrawn in place: the last screen holds the title and each row once, each
    // with its outcome.
    const std::string& last = frames.back();
    EXPECT_EQ(count(last, "Uploading big.pdf"), 1u) << last;
    for (const auto& label : labels) {
        EXPECT_EQ(count(last, "  " + label + " "), 1u) << label << "\n" << last;
        EXPECT_NE(rowOf(last, label).find("uploaded as big.pdf"), std::string::npos) << label << "\n" << last;
    }
}

}  // namespace
}  // namespace vxcloud::testing::cli
