#include "ProgressBar.h"

#include <unistd.h>

#include <algorithm>

namespace KvCli {

namespace {
constexpr std::size_t barWidth = 30;
constexpr auto redrawInterval = std::chrono::milliseconds(100);
}  // namespace

ProgressBar::ProgressBar(std::string label, std::size_t total, Mode mode, std::FILE* stream)
    : label_(std::move(label)), total_(total), stream_(stream),
      drawing_(mode == Mode::Always || (mode == Mode::Auto && stream && isatty(fileno(stream))))
{
    if (drawing_) draw(0);
}

ProgressBar::~ProgressBar()
{
    finish();
}

void ProgressBar::advance(std::size_t steps)
{
    const std::size_t now = done_.fetch_add(steps, std::memory_order_relaxed) + steps;
    if (!drawing_ || finished_.load(std::memory_order_relaxed)) return;
    // A worker that finds another one drawing skips its turn: the next draw shows its steps.
    std::unique_lock<std::mutex> lock(drawLock_, std::try_to_lock);
    if (!lock.owns_lock()) return;
    const auto time = std::chrono::steady_clock::now();
    if (time - lastDraw_ < redrawInterval && now < total_) return;
    lastDraw_ = time;
    draw(now);
}

void ProgressBar::finish()
{
    if (finished_.exchange(true)) return;
    if (!drawing_) return;
    std::lock_guard<std::mutex> lock(drawLock_);
    draw(done());
    std::fputc('\n', stream_);
    std::fflush(stream_);
}

std::string ProgressBar::render(const std::string& label, std::size_t done, std::size_t total,
                                std::size_t width)
{
    const std::size_t shown = total ? std::min(done, total) : 0;
    const std::size_t filled = total ? shown * width / total : 0;
    const unsigned percent = total ? static_cast<unsigned>(shown * 100 / total) : 0;
    std::string line = label;
    line += " [";
    line.append(filled, '#');
    line.append(width - filled, '.');
    line += "]  ";
    line += std::to_string(done);
    line += '/';
    line += std::to_string(total);
    line += "  ";
    line += std::to_string(percent);
    line += '%';
    return line;
}

void ProgressBar::draw(std::size_t done)
{
    std::string line = render(label_, done, total_, barWidth);
    const std::size_t length = line.size();
    if (length < lastLength_) line.append(lastLength_ - length, ' ');  // wipe a longer line
    lastLength_ = length;
    std::fprintf(stream_, "\r%s", line.c_str());
    std::fflush(stream_);
}

}  // namespace KvCli
