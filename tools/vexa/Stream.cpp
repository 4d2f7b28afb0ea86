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
#include <vector>

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

// Frames read ahead, used again: reading into a vector that already has the frame's size
// neither allocates nor clears.
class FrameShelf {
  public:
    std::unique_ptr<vexa::io::Image> take() {
        std::lock_guard<std::mutex> guard(lock_);
        if (free_.empty()) return std::make_unique<vexa::io::Image>();
        std::unique_ptr<vexa::io::Image> frame = std::move(free_.back());
        free_.pop_back();
        return frame;
    }
    void give(std::unique_ptr<vexa::io::Image> frame) {
        std::lock_guard<std::mutex> guard(lock_);
        free_.push_back(std::move(frame));
    }

  private:
    std::mutex lock_;
    std::vector<std::unique_ptr<vexa::io::Image>> free_;
};

// A frame done: a frame of a clip stays in the buffer the operation wrote; a picture file's
// result comes as the picture writer takes it.
struct Done {
    std::shared_ptr<mivo::core::MediaBuffer> buffer;
    vexa::io::Image picture;
};

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
    FrameShelf shelf;
    const auto buffers = std::make_shared<BufferPool>();
    std::deque<std::pair<long long, std::unique_ptr<vexa::io::Image>>> pending;
    std::map<long long, Done> finished;
    const bool picture = reader.isPicture();
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
        worker.reuseBuffers(buffers);
        std::unique_lock<std::mutex> guard(lock);
        for (;;) {
            changed.wait(guard, [&] { return !pending.empty() || inputDone; });
            if (pending.empty()) return;
            auto [index, frame] = std::move(pending.front());
            pending.pop_front();
            // Frames before a failure are still written; those after it are not needed.
            if (failure && index >= failedAt) continue;
            guard.unlock();
            Done result;
            std::exception_ptr error;
            std::ostringstream said;
            try {
                if (picture) {
                    result.picture =
                        worker.apply(std::move(*frame), job.type, verbose ? &said : nullptr);
                } else {
                    // The operation reads the frame where it was read to; the frame goes back
                    // to the shelf once nothing holds it.
                    vexa::io::Image* image = frame.release();
                    std::shared_ptr<mivo::core::MediaBuffer> input(
                        mivo::core::detail::CpuMediaBuffer::wrap(worker.inputFormat(image->view()),
                                                                 image->data.data())
                            .release(),
                        [&shelf, image](mivo::core::MediaBuffer* buffer) {
                            delete buffer;
                            shelf.give(std::unique_ptr<vexa::io::Image>(image));
                        });
                    result.buffer = worker.process(input, job.type, verbose ? &said : nullptr);
                }
            } catch (...) {
                error = std::current_exception();
            }
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

    long long nextRead = parameters.firstFrame;
    long long nextWrite = parameters.firstFrame;

    // Writing has a thread of its own so that it overlaps reading.
    auto writeOut = [&]() {
        auto lastShown = Clock::now();
        std::unique_lock<std::mutex> guard(lock);
        for (;;) {
            changed.wait(guard, [&] {
                return finished.count(nextWrite) || (failure && failedAt <= nextWrite) ||
                       (inputDone && nextWrite == nextRead);
            });
            if ((failure && failedAt <= nextWrite) || !finished.count(nextWrite)) return;
            Done result = std::move(finished[nextWrite]);
            finished.erase(nextWrite);
            if (verbose) {
                *verbose << details.str();
                details.str("");
            }
            guard.unlock();
            try {
                const uint8_t* bytes = result.buffer ? packedBytes(*result.buffer) : nullptr;
                if (bytes) {
                    const mivo::core::MediaBuffer& frame = *result.buffer;
                    writer.write(vexa::io::ImageView{frame.getCols(), frame.getRows(),
                                                     frame.getFormat()->getColorFormat(), bytes},
                                 nextWrite);
                } else {
                    writer.write(
                        result.buffer ? toImage(*result.buffer) : std::move(result.picture),
                        nextWrite);
                }
            } catch (...) {
                guard.lock();
                fail(nextWrite, std::current_exception());
                return;
            }
            result = {};
            if (progress && Clock::now() - lastShown > std::chrono::milliseconds(250)) {
                lastShown = Clock::now();
                showProgress(errors, nextWrite + 1 - parameters.firstFrame, total,
                             std::chrono::duration<double>(lastShown - start).count());
            }
            guard.lock();
            ++nextWrite;
            changed.notify_all();
        }
    };

    std::vector<std::thread> pool;
    for (unsigned t = 0; t < workers; ++t) pool.emplace_back(work);
    pool.emplace_back(writeOut);

    // Reading stays on this thread, ahead of the writer by the window at most.
    try {
        for (;;) {
            {
                std::unique_lock<std::mutex> guard(lock);
                changed.wait(guard, [&] {
                    return failure || nextRead - nextWrite < static_cast<long long>(window);
                });
                if (failure) break;
            }
            if (parameters.endFrame >= 0 && nextRead >= parameters.endFrame) break;
            std::unique_ptr<vexa::io::Image> frame = shelf.take();
            if (!reader.next(*frame)) break;
            std::lock_guard<std::mutex> guard(lock);
            pending.emplace_back(nextRead++, std::move(frame));
            changed.notify_all();
        }
    } catch (...) {
        std::lock_guard<std::mutex> guard(lock);
        fail(nextRead, std::current_exception());
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        inputDone = true;
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
