// One input's frames through one operation: read in order, processed by a pool of workers,
// written in input order, with only a few frames held at any time.
#ifndef VEXA_STREAM_H
#define VEXA_STREAM_H

#include "Parameters.h"

#include <ostream>
#include <string>

namespace vexa {

struct Job {
    std::string input;   // a file, or "-" for standard input
    std::string output;  // a file, a frame pattern, or "-" for standard output
    std::string type;    // names the output file type by its extension
};

struct StreamSummary {
    long long frames = 0;
    double seconds = 0.0;
};

// Runs `job` with `threads` workers. `errors` takes notices and, with `progress`, a progress
// line. Throws on the first failure after writing (to standard output) every frame before
// it; a file output is then left as it was.
StreamSummary runStream(const Job& job, const Parameters& parameters, unsigned threads,
                        std::ostream& errors, bool progress, std::ostream* verbose);

}  // namespace vexa

#endif  // VEXA_STREAM_H
