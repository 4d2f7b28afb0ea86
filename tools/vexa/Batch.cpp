#include "Batch.h"

#include "Worker.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

namespace vexa {

namespace fs = std::filesystem;

namespace {

std::string outputExtension(const std::string& input, const std::string& extension,
                            std::optional<int> toFormat) {
    if (!extension.empty()) return "." + extension;
    const std::string own = fs::path(input).extension().string();
    if (!toFormat) return own;
    const int holds = vexa::io::preferredColorFormatForExtension(own);
    if (holds == *toFormat || (isPng(own) && *toFormat == vexa::io::kRgb)) {
        return own;
    }
    switch (*toFormat) {
        case vexa::io::kNv12:
            return ".nv12";
        case vexa::io::kNv21:
            return ".nv21";
        case vexa::io::kYuv420:
            return ".yuv";
        case vexa::io::kBgra:
            return ".bgra";
        default:
            return ".png";  // holds rgb and rgba; bgr and argb come back as rgb or rgba
    }
}

bool samePath(const fs::path& a, const fs::path& b) {
    std::error_code ec;
    return fs::weakly_canonical(a, ec) == fs::weakly_canonical(b, ec);
}

}  // namespace

std::vector<std::string> expandInputs(const std::vector<std::string>& inputs, bool& sawFolder) {
    std::vector<std::string> files;
    for (const std::string& input : inputs) {
        std::error_code ec;
        if (!fs::is_directory(input, ec)) {
            files.push_back(input);  // a missing file is reported when its turn comes
            continue;
        }
        sawFolder = true;
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(input, ec)) {
            if (entry.is_regular_file() && vexa::io::isSupportedInput(entry.path().string())) {
                found.push_back(entry.path().string());
            }
        }
        if (ec) throw UsageError("cannot list folder '" + input + "': " + ec.message());
        if (found.empty()) throw UsageError("folder '" + input + "' holds no picture files");
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

std::vector<Job> planJobs(const std::vector<std::string>& inputs, const std::string& output,
                          const std::string& operation, const std::string& extension,
                          std::optional<int> toFormat) {
    if (inputs.empty()) throw UsageError("no input given");
    if (std::find(inputs.begin(), inputs.end(), "-") != inputs.end()) {
        if (inputs.size() > 1) throw UsageError("standard input ('-') must be the only input");
        if (output.empty()) throw UsageError("reading standard input needs an output (-o)");
        const std::string type =
            output == "-" ? "-." + (extension.empty() ? std::string("y4m") : extension) : output;
        if (!vexa::io::isSupportedOutput(type)) {
            throw UsageError("cannot write '" + output + "': unknown file type");
        }
        return {{"-", output, type}};
    }
    bool sawFolder = false;
    const std::vector<std::string> files = expandInputs(inputs, sawFolder);
    std::error_code ec;
    const bool intoFolder = files.size() > 1 || sawFolder || fs::is_directory(output, ec) ||
                            (!output.empty() && output.back() == '/');
    std::vector<Job> jobs;
    if (!intoFolder) {
        const fs::path input(files.front());
        std::string target = output;
        if (target.empty()) {
            target = input.stem().string() + "." + operation +
                     outputExtension(files.front(), extension, toFormat);
        }
        jobs.push_back({files.front(), target, target});
        if (target == "-") jobs.back().type = "-." + (extension.empty() ? "y4m" : extension);
    } else {
        if (output.empty() || output == "-") {
            throw UsageError("several inputs need an output folder (-o FOLDER)");
        }
        // A picture name would otherwise become a folder of that name.
        if (!fs::is_directory(output, ec) && output.back() != '/' &&
            vexa::io::isSupportedOutput(output)) {
            throw UsageError("'" + output +
                             "' names one picture file, but the inputs are several pictures; "
                             "give an output folder (-o FOLDER)");
        }
        fs::create_directories(output, ec);
        if (ec) throw UsageError("cannot create output folder '" + output + "': " + ec.message());
        std::map<std::string, std::string> claimed;
        for (const std::string& file : files) {
            const fs::path target = fs::path(output) / (fs::path(file).stem().string() +
                                                        outputExtension(file, extension, toFormat));
            auto [it, fresh] = claimed.emplace(target.string(), file);
            if (!fresh) {
                throw UsageError("'" + it->second + "' and '" + file + "' would both write '" +
                                 target.string() + "'");
            }
            jobs.push_back({file, target.string(), target.string()});
        }
    }
    for (const Job& job : jobs) {
        if (!vexa::io::isSupportedOutput(job.type)) {
            throw UsageError("cannot write '" + job.output +
                             "': unknown file type (use .png, .jpg, .y4m, .yuv, .nv12, .nv21, "
                             ".rgb, .rgba or .bgra)");
        }
        if (job.output != "-" && samePath(job.input, job.output)) {
            throw UsageError("'" + job.output + "' would overwrite its own input");
        }
    }
    return jobs;
}

Summary runJobs(const std::vector<Job>& jobs, const Parameters& parameters, unsigned threads,
                std::ostream& errors, bool progress, std::ostream* verbose) {
    const auto start = std::chrono::steady_clock::now();
    std::atomic<size_t> next{0};
    std::atomic<size_t> failed{0};
    std::mutex outputLock;
    size_t done = 0;
    std::string current;

    // Files done, the file last started and the time left, on one line redrawn in place.
    auto showProgress = [&]() {
        constexpr size_t kWidth = 30;
        const size_t filled = jobs.empty() ? kWidth : done * kWidth / jobs.size();
        errors << "\r\033[K[" << std::string(filled, '#') << std::string(kWidth - filled, '.')
               << "] " << done << "/" << jobs.size();
        if (done > 0 && done < jobs.size()) {
            const double elapsed =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            errors << ", " << static_cast<long long>(elapsed / done * (jobs.size() - done) + 0.5)
                   << " s left";
        }
        if (!current.empty()) errors << ", " << current;
        errors << std::flush;
    };

    auto begin = [&](const Job& job) {
        if (!progress) return;
        std::lock_guard<std::mutex> guard(outputLock);
        current = job.input;
        showProgress();
    };

    auto report = [&](const Job& job, const std::string& message, const std::string& details) {
        std::lock_guard<std::mutex> guard(outputLock);
        if (progress) errors << "\r\033[K";
        if (verbose) {
            *verbose << details;
            if (message.empty()) *verbose << "done: " << job.input << " -> " << job.output << "\n";
            verbose->flush();
        }
        if (!message.empty()) errors << "vexa: error: " << message << "\n";
        ++done;
        if (current == job.input) current.clear();
        if (progress) showProgress();
    };

    auto work = [&]() {
        for (size_t i = next++; i < jobs.size(); i = next++) {
            std::ostringstream details;
            std::string message;
            begin(jobs[i]);
            try {
                runStream(jobs[i], parameters, 1, errors, false, verbose ? &details : nullptr);
            } catch (const std::exception& e) {
                message = e.what();
                // Library and usage messages already name the file; others get it here.
                if (message.find(jobs[i].input) == std::string::npos &&
                    message.find(jobs[i].output) == std::string::npos) {
                    message = jobs[i].input + ": " + message;
                }
                ++failed;
            }
            report(jobs[i], message, details.str());
        }
    };

    const unsigned count =
        std::max(1u, std::min<unsigned>(threads, static_cast<unsigned>(jobs.size())));
    std::vector<std::thread> workers;
    for (unsigned t = 1; t < count; ++t) workers.emplace_back(work);
    work();
    for (std::thread& worker : workers) worker.join();
    if (progress) errors << "\r\033[K" << std::flush;

    Summary summary;
    summary.files = jobs.size();
    summary.failed = failed;
    summary.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return summary;
}

}  // namespace vexa
