#include "front/Progress.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

constexpr qint64 REDRAW_MS = 100; // no more redraws than a reader can follow
const char CLEAR_LINE[] = "\r\x1b[K";

void writeError(const std::string& text) {
    const char* data = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written <= 0)
            return;
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

std::string minutes(qint64 ms) {
    const qint64 s = ms / 1000;
    const std::string seconds = std::to_string(s % 60);
    return std::to_string(s / 60) + ":" + (seconds.size() < 2 ? "0" : "") + seconds;
}

} // namespace

// Forwards to a stream's own buffer, clearing the status line before the first character
// of anything written.
class Progress::ClearingBuffer : public std::streambuf {
public:
    ClearingBuffer(Progress& progress, std::ostream& stream)
        : progress(progress), stream(stream), kept(stream.rdbuf(this)) {}
    ~ClearingBuffer() override { stream.rdbuf(kept); }

protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        std::lock_guard<std::mutex> lock(progress.mutex);
        progress.clearLine();
        return kept->sputn(text, count);
    }
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        std::lock_guard<std::mutex> lock(progress.mutex);
        progress.clearLine();
        return kept->sputc(traits_type::to_char_type(c));
    }
    int sync() override { return kept->pubsync(); }

private:
    Progress& progress;
    std::ostream& stream;
    std::streambuf* kept;
};

bool Progress::wanted() {
    const char* term = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) == 1 && term != nullptr && std::strcmp(term, "dumb") != 0;
}

Progress::Progress()
    : cerrBuffer(std::make_unique<ClearingBuffer>(*this, std::cerr)),
      clogBuffer(std::make_unique<ClearingBuffer>(*this, std::clog)) {
    runClock.start();
}

Progress::~Progress() = default;

void Progress::clearLine() {
    if (shown)
        writeError(CLEAR_LINE);
    shown = false;
}

void Progress::draw() {
    const qint64 elapsed = driverClock.elapsed();
    std::string line = "[" + std::to_string(done) + "/" + std::to_string(goals) + "] driver " +
                       driverName.toStdString() + ", " + std::to_string(running) + " running, " +
                       minutes(elapsed) + " elapsed";
    if (done > 0 && done < goals)
        line += ", about " +
                minutes(elapsed * static_cast<qint64>(goals - done) / static_cast<qint64>(done)) +
                " left";
    writeError(CLEAR_LINE + line);
    shown = true;
    drawClock.start();
}

void Progress::driverStarted(const std::string&, const QString& driver, std::size_t goalCount,
                             std::size_t) {
    std::lock_guard<std::mutex> lock(mutex);
    driverName = driver;
    goals = goalCount;
    done = running = 0;
    driverClock.start();
    draw();
}

void Progress::jobStarted() {
    std::lock_guard<std::mutex> lock(mutex);
    ++running;
    if (drawClock.elapsed() >= REDRAW_MS)
        draw();
}

void Progress::jobEnded(const director::job_report_t& job) {
    std::lock_guard<std::mutex> lock(mutex);
    running -= running > 0;
    done += job.goals.size();
    for (const director::goal_result_t& goal : job.goals)
        ++answers[goal.answer.isNull() ? QStringLiteral("no answer") : goal.answer];
    if (drawClock.elapsed() >= REDRAW_MS || done == goals)
        draw();
}

void Progress::driverEnded() {
    std::lock_guard<std::mutex> lock(mutex);
    clearLine();
}

void Progress::finish() {
    std::lock_guard<std::mutex> lock(mutex);
    clearLine();
    std::string line = "povrun: " + minutes(runClock.elapsed()) + " elapsed";
    std::string separator = ", answers: ";
    for (const auto& [answer, count] : answers) {
        line += separator + std::to_string(count) + " " + answer.toStdString();
        separator = ", ";
    }
    writeError(line + "\n");
}
