#pragma once
// A progress bar for long batches (many files, many frames). It draws on standard error, and
// only when standard error is a terminal: piped or logged output stays clean. advance() may be
// called from several worker threads; redraws are limited to about ten a second.
//
//     ProgressBar bar("converting", files.size());
//     for (...) { convertOne(); bar.advance(); }
//     bar.finish();   // or let the destructor do it

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>

namespace KvCli {

class ProgressBar {
public:
    enum class Mode { Auto, Always, Never };  // Auto: draw when the stream is a terminal

    ProgressBar(std::string label, std::size_t total, Mode mode = Mode::Auto,
                std::FILE* stream = stderr);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void advance(std::size_t steps = 1);
    std::size_t done() const { return done_.load(std::memory_order_relaxed); }
    bool drawing() const { return drawing_; }
    // Draws the final state and ends the line. Further calls do nothing.
    void finish();

    // One line of the bar, without carriage return: "label [#####.....]  12/40  30%".
    static std::string render(const std::string& label, std::size_t done, std::size_t total,
                              std::size_t barWidth);

private:
    void draw(std::size_t done);

    std::string label_;
    std::size_t total_;
    std::FILE* stream_;
    bool drawing_;
    std::atomic<std::size_t> done_{0};
    std::atomic<bool> finished_{false};
    std::mutex drawLock_;
    std::chrono::steady_clock::time_point lastDraw_{};
    std::size_t lastLength_ = 0;
};

}  // namespace KvCli
