#include "ZocaRecorder.h"

#include <deque>
#include <mutex>

namespace mivo::test {
namespace {

struct Recorder {
    std::mutex lock;
    std::vector<ZocaCall> calls;
    std::deque<int> results;
};

Recorder& recorder() {
    static Recorder instance;
    return instance;
}

int record(const char* function, const _ZOCA_IMGB* src, const _ZOCA_IMGB* dst, int argument) {
    Recorder& r = recorder();
    std::lock_guard<std::mutex> guard(r.lock);
    r.calls.push_back({function, *src, *dst, argument});
    if (r.results.empty()) return 0;
    const int result = r.results.front();
    r.results.pop_front();
    return result;
}

}  // namespace

std::vector<ZocaCall> takeZocaCalls() {
    std::lock_guard<std::mutex> guard(recorder().lock);
    std::vector<ZocaCall> taken;
    taken.swap(recorder().calls);
    return taken;
}

void scriptZocaResults(std::vector<int> results) {
    std::lock_guard<std::mutex> guard(recorder().lock);
    recorder().results.assign(results.begin(), results.end());
}

void resetZoca() {
    std::lock_guard<std::mutex> guard(recorder().lock);
    recorder().calls.clear();
    recorder().results.clear();
}

}  // namespace mivo::test

extern "C" {

int vexa_rsz(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_rsz", src, dst, -1);
}
int vexa_csc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_csc", src, dst, -1);
}
int vexa_csc_dither(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_csc_dither", src, dst, -1);
}
int vexa_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_rot", src, dst, rotation);
}
int vexa_rsz_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_rsz_rot", src, dst, rotation);
}
int vexa_csc_rot(const _ZOCA_IMGB* src, int rotation, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_csc_rot", src, dst, rotation);
}
int vexa_crop(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_crop", src, dst, -1);
}
int vexa_cgc(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst) {
    return mivo::test::record("vexa_cgc", src, dst, -1);
}
int vexa_hdr_to_sdr(const _ZOCA_IMGB* src, _ZOCA_IMGB* dst, int mode) {
    return mivo::test::record("vexa_hdr_to_sdr", src, dst, mode);
}

}  // extern "C"
