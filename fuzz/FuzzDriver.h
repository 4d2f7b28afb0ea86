// Fuzz targets follow libFuzzer's entry point, so the same file builds into a libFuzzer
// binary with clang, and into a self-contained mutation run (FuzzDriver.cpp) everywhere else.
#ifndef MIVO_FUZZ_FUZZDRIVER_H
#define MIVO_FUZZ_FUZZDRIVER_H

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Valid inputs the self-contained run starts its mutations from.
std::vector<std::vector<uint8_t>> fuzzSeeds();

#endif  // MIVO_FUZZ_FUZZDRIVER_H
