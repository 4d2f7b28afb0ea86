// Many picture files through one operation, in parallel, one plugin per worker thread.
#ifndef VEXA_BATCH_H
#define VEXA_BATCH_H

#include "Parameters.h"
#include "Stream.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace vexa {

struct Summary {
    size_t files = 0;
    size_t failed = 0;
    double seconds = 0.0;
};

// The inputs with each folder among them replaced by the picture files in it, sorted.
// Throws UsageError for a folder that cannot be listed or holds no pictures.
std::vector<std::string> expandInputs(const std::vector<std::string>& inputs, bool& sawFolder);

// Pairs each input with its output. Folders among the inputs stand for the picture files in
// them. One plain input writes `output` (or "<stem>.<operation>.<ext>" when empty); several
// inputs, or any folder, write into the folder `output` under their own stems. `extension`
// (without the dot) picks the output type; empty keeps each input's, or takes the type that
// holds `toFormat` when the input's cannot, and standard output ("-") takes Y4M. "-" as the
// input is standard input. Throws UsageError.
std::vector<Job> planJobs(const std::vector<std::string>& inputs, const std::string& output,
                          const std::string& operation, const std::string& extension,
                          std::optional<int> toFormat = std::nullopt);

// Runs every job, each file's frames in order; a failing file is reported on `errors` and the
// others go on. With `progress`, a bar on `errors` shows how far it is.
Summary runJobs(const std::vector<Job>& jobs, const Parameters& parameters, unsigned threads,
                std::ostream& errors, bool progress, std::ostream* verbose);

}  // namespace vexa

#endif  // VEXA_BATCH_H
