#include "Stream.h"

#include "Worker.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

namespace vexa {

namespace {

using Clock = std::chrono::steady_clock;

// The failure of one frame; the message says which.
std::string frameContext(const Job& job, long long index, bool many) {
    return (job.input == "-" ? std::string("standard input") : job.input) +
           (many ? ": frame " + std::to_string(index) : std::string()) + ": ";
}

void showProgress(std::ostream& errors, long long done, long long total, double seconds) {
    const double fps = seconds > 0 ? done / seconds : 0.0;
    std::ostringstream line;
    line.setf(std::ios::fixed);
    line.precision(1);
    line << "\r\033[Kframe " << done;
    if (total > 0) line << "/" << total;
    line << ", " << fps << " fps";
    if (total > 0 && fps > 0)
        line << ", " << static_cast<long long>((total - done) / fps + 0.5) << " s left";
    errors << line.str() << std::flush;
}

}  // namespace

StreamSummary runStream(const Job& job, const Parameters& parameters, unsigned threads,
                        std::ostream& errors, bool progress, std::ostream* verbose) {
    const auto start = Clock::now();
    vexa::io::FrameReader reader(job.input, parameters.raw);
    const std::string inputName = job.input == "-" ? "standard input" : job.input;
    if (reader.sourceBits() > 8) {
        errors << "vexa: note: " << inputName << " has " << reader.sourceBits()
               << "-bit samples; reduced to 8 bits with ordered dithering\n";
    }
    const long long hint = reader.frameCountHint();
    const bool many = hint != 1;
    for (long long i = 0; i < parameters.firstFrame; ++i) {
        if (!reader.skip()) {
            throw vexa::io::IoError(
                "cannot read '" + inputName + "': frame " + std::to_string(parameters.firstFrame) +
                " requested, but the file holds " + std::to_string(i) + " frame(s)");
        }
    }
    long long total = hint < 0 ? -1 : hint - parameters.firstFrame;
    if (parameters.endFrame >= 0) total = parameters.endFrame - parameters.firstFrame;
    vexa::io::FrameWriter writer(job.output, job.type, reader.tags(), parameters.write);

    // Two frames per worker keep every worker busy while the reader and writer catch up.
    const unsigned workers = std::max(1u, threads);
    const size_t window = 2 * size_t(workers);
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::pair<long long, vexa::io::Image>> pending;
    std::map<long long, vexa::io::Image> finished;
    std::exception_ptr failure;
    long long failedAt = -1;
    bool inputDone = false;
    std::ostringstream details;

    auto fail = [&](long long index, std::exception_ptr error) {
        if (failure == nullptr || index < failedAt) {
            failure = error;
            failedAt = index;
        }
        changed.notify_all();
    };

    auto work = [&]() {
        Worker worker(parameters);
        std::unique_lock<std::mutex> guard(lock);
        for (;;) {
            changed.wait(guard, [&] { return !pending.empty() || inputDone; });
            if (pending.empty()) return;
            auto [index, frame] = std::move(pending.front());
            pending.pop_front();
            // Frames before a failure are still written; those after it are not needed.
            if (failure && index >= failedAt) continue;
            guard.unlock();
            vexa::io::Image result;
            std::exception_ptr error;
            std::ostringstream said;
            try {
                result = worker.apply(std::move(frame), job.type, verbose ? &said : nullptr);
            } catch (...) {
                error = std::current_exception();
            }
            frame = {};
            guard.lock();
            if (verbose) details << said.str();
            if (error) {
                fail(index, error);
                return;
            }
            finished.emplace(index, std::move(result));
            changed.notify_all();
        }
    };

    std::vector<std::thread> pool;
    for (unsigned t = 0; t < workers; ++t) pool.emplace_back(work);

    long long nextRead = parameters.firstFrame;
    long long nextWrite = parameters.firstFrame;
    bool endOfInput = false;
    auto lastShown = Clock::now();
    try {
        for (;;) {
            // Fill the window, then write what is done in order.
            while (!endOfInput && nextRead - nextWrite < static_cast<long long>(window)) {
                if (parameters.endFrame >= 0 && nextRead >= parameters.endFrame) {
                    endOfInput = true;
                    break;
                }
                vexa::io::Image frame;
                bool got = false;
                try {
                    got = reader.next(frame);
                } catch (...) {
                    std::lock_guard<std::mutex> guard(lock);
                    fail(nextRead, std::current_exception());
                    endOfInput = true;
                    break;
                }
                if (!got) {
                    endOfInput = true;
                    break;
                }
                std::lock_guard<std::mutex> guard(lock);
                pending.emplace_back(nextRead++, std::move(frame));
                changed.notify_one();
            }
            if (endOfInput) {
                std::lock_guard<std::mutex> guard(lock);
                inputDone = true;
                changed.notify_all();
            }
            if (nextWrite == nextRead) break;
            vexa::io::Image result;
            {
                std::unique_lock<std::mutex> guard(lock);
                changed.wait(guard, [&] {
                    return finished.count(nextWrite) || (failure && failedAt <= nextWrite);
                });
                if (failure && failedAt <= nextWrite) break;
                result = std::move(finished[nextWrite]);
                finished.erase(nextWrite);
                if (verbose) {
                    *verbose << details.str();
                    details.str("");
                }
            }
            writer.write(std::move(result), nextWrite);
            ++nextWrite;
            if (progress && Clock::now() - lastShown > std::chrono::milliseconds(250)) {
                lastShown = Clock::now();
                showProgress(errors, nextWrite - parameters.firstFrame, total,
                             std::chrono::duration<double>(lastShown - start).count());
            }
        }
    } catch (...) {
        std::lock_guard<std::mutex> guard(lock);
        fail(nextWrite, std::current_exception());
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        inputDone = true;
        if (!failure) failedAt = -1;
        changed.notify_all();
    }
    for (std::thread& thread : pool) thread.join();
    if (progress) errors << "\r\033[K" << std::flush;

    if (failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const vexa::io::IoError&) {
            throw;  // names the file, and the frame where it matters
        } catch (const UsageError& e) {
            throw UsageError(frameContext(job, failedAt, many) + e.what());
        } catch (const std::exception& e) {
            throw FileError(frameContext(job, failedAt, many) + e.what());
        }
    }
    const long long frames = nextWrite - parameters.firstFrame;
    if (parameters.endFrame >= 0 && nextRead < parameters.endFrame) {
        throw vexa::io::IoError(
            "cannot read '" + inputName + "': frames " + std::to_string(parameters.firstFrame) +
            " to " + std::to_string(parameters.endFrame - 1) + " requested, but the file holds " +
            std::to_string(nextRead) + " frame(s)");
    }
    if (frames == 0) throw vexa::io::IoError("cannot read '" + inputName + "': it holds no frames");
    writer.finish();
    StreamSummary summary;
    summary.frames = frames;
    summary.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return summary;
}

}  // namespace vexa
