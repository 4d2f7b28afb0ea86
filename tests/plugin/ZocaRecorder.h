// A recording double of the image library. Linked in place of libzocabase, it keeps each
// call's records byte for byte with its other argument, and answers with scripted results.
#ifndef MIVO_TESTS_PLUGIN_ZOCARECORDER_H
#define MIVO_TESTS_PLUGIN_ZOCARECORDER_H

#include <zoca/zoca.h>

#include <functional>
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

// Runs on each call, after it is recorded (for example to fill the destination).
void onZocaCall(std::function<void(const ZocaCall&)> action);

// Forgets calls, scripted results and the action.
void resetZoca();

}  // namespace mivo::test

#endif  // MIVO_TESTS_PLUGIN_ZOCARECORDER_H
