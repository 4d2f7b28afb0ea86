// Self-contained mutation run: every seed, then bit flips, byte changes, insertions and
// truncations of the seeds, from a fixed random sequence so a failure repeats.
#include "FuzzDriver.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

int main(int argc, char** argv) {
    long iterations = 2000;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::string(argv[i]) == "--iterations") iterations = std::atol(argv[i + 1]);
    }
    const std::vector<std::vector<uint8_t>> seeds = fuzzSeeds();
    if (seeds.empty()) return 1;
    for (const auto& seed : seeds) LLVMFuzzerTestOneInput(seed.data(), seed.size());

    std::mt19937 random(12345);
    auto pick = [&random](size_t n) { return n == 0 ? 0 : static_cast<size_t>(random() % n); };
    for (long i = 0; i < iterations; ++i) {
        std::vector<uint8_t> input = seeds[pick(seeds.size())];
        const int edits = 1 + static_cast<int>(pick(8));
        for (int e = 0; e < edits && !input.empty(); ++e) {
            switch (pick(5)) {
                case 0:
                    input[pick(input.size())] ^= static_cast<uint8_t>(1u << pick(8));
                    break;
                case 1:
                    input[pick(input.size())] = static_cast<uint8_t>(random());
                    break;
                case 2:
                    input.insert(input.begin() + pick(input.size()),
                                 static_cast<uint8_t>(random()));
                    break;
                case 3:
                    input.resize(pick(input.size()));
                    break;
                default:
                    input[pick(input.size())] = static_cast<uint8_t>(pick(2) ? 0xff : 0);
                    break;
            }
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%ld mutated inputs and %zu seeds ran without a fault\n", iterations, seeds.size());
    return 0;
}
