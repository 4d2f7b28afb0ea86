// A recording double of the image library. Linked in place of libzocabase, it keeps each
// call's records byte for byte with its other argument, and answers with scripted results.
#ifndef MIVO_TESTS_PLUGIN_ZOCARECORDER_H
#define MIVO_TESTS_PLUGIN_ZOCARECORDER_H

#include <zoca/zoca.h>

#include <string>
#include <vector>

namespace mivo::test {

struct ZocaCall {
    std::string function;  // "vexa_rsz", "vexa_rot", ...
    _ZOCA_IMGB src;
    _ZOCA_IMGB dst;
    int argument;  // the rotation code or tone-mapping mode; -1 for the other functions
};

// Calls recorded since the last take, oldest first; clears the record.
std::vector<ZocaCall> takeZocaCalls();

// Results for the next calls, in order; once used up, calls answer 0.
void scriptZocaResults(std::vector<int> results);

// Forgets calls and scripted results.
void resetZoca();

}  // namespace mivo::test

#endif  // MIVO_TESTS_PLUGIN_ZOCARECORDER_H
