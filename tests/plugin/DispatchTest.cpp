// The processor loop, its one retry after -3, and the once-only registration of the view.
#include "PluginTestSupport.h"

#include <atomic>
#include <thread>
#include <variant>

namespace mivo::test {
namespace {

using Processor = core::Plugin::Processor;

// A plugin running exactly the processors a test hands it.
class ListPlugin final : public Plugin {
  public:
    ListPlugin(std::shared_ptr<ImgpOption> option, std::vector<Processor> list)
        : ext::detail::VexaPluginBase(std::move(option)) {
        for (Processor& p : list) processors_.push_back(std::move(p));
    }
};

// What a processor saw on one run.
struct Seen {
    bool outEmpty;
    int outColorFormat;
    const ImgpOption* option;
};
using Runs = std::vector<Seen>;

// A processor answering `results` in turn (0 once they are used up), noting each run.
Processor scripted(std::vector<int> results, std::shared_ptr<Runs> runs) {
    auto next = std::make_shared<size_t>(0);
    return [results, runs, next](const Buffer&, Buffer& out,
                                 const std::shared_ptr<ImgpOption>& option) {
        runs->push_back({out->isEmpty(), out->getFormat()->getColorFormat(), option.get()});
        return *next < results.size() ? results[(*next)++] : 0;
    };
}

class DispatchTest : public PluginTest {
  protected:
    Buffer in_ = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 2));
    std::shared_ptr<ImgpOption> option_ = std::make_shared<ImgpOption>();

    static Buffer slotPreferring(FormatExtraValue cf) {
        return emptySlot(
            imageFormat(COLOR_FORMAT_RGB, 30, 20, 0, withExtra(extra::kPreferredColor, cf)));
    }
};

// Every processor runs and the last result counts; -3 is retried once, into a new buffer of
// the input's shape in the preferred colour, only when the output is mutable and has one.
TEST_F(DispatchTest, ResultsAndTheOneRetryOnAMutableOutputWithAPreferredColor) {
    constexpr int kPicture = -1, kSlot = 0;  // else: a slot preferring that colour format
    struct Case {
        const char* name;
        std::vector<std::vector<int>> scripts;  // {} is an empty processor
        int out, result;
        std::vector<size_t> runs;
        int made;  // colour format of the buffer the retry put into the slot, 0: none
    };
    const Case cases[] = {
        {"no processors", {}, COLOR_FORMAT_RGBA, 0, {}, 0},
        {"-1 then 0", {{-1}, {0}}, kPicture, 0, {1, 1}, 0},
        {"0 then -1", {{0}, {-1}}, kPicture, -1, {1, 1}, 0},
        {"-2 then 7", {{-2}, {7}}, kPicture, 7, {1, 1}, 0},
        {"-3 then 5", {{-3}, {5}}, kPicture, 5, {1, 1}, 0},
        {"immutable output", {{7}, {-3, 9}}, kPicture, -3, {1, 1}, 0},
        {"no preferred colour", {{-3, 0}}, kSlot, -3, {1}, 0},
        {"retried", {{-3, 4}}, COLOR_FORMAT_RGBA, 4, {2}, COLOR_FORMAT_RGBA},
        {"retried once", {{-3, -3, -3}}, COLOR_FORMAT_BGRA, -3, {2}, COLOR_FORMAT_BGRA},
        {"a later success", {{-3, -3}, {0}}, COLOR_FORMAT_BGRA, 0, {2, 1}, COLOR_FORMAT_BGRA},
        {"empty processor", {{0}, {}}, kSlot, 0, {1, 0}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::shared_ptr<Runs>> runs;
        std::vector<Processor> processors;
        for (const std::vector<int>& script : c.scripts) {
            runs.push_back(std::make_shared<Runs>());
            processors.push_back(script.empty() ? Processor() : scripted(script, runs.back()));
        }
        Buffer out =
            c.out == kPicture
                ? picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 0,
                                      withExtra(extra::kPreferredColor, int{COLOR_FORMAT_RGBA})))
            : c.out == kSlot ? emptySlot(imageFormat(COLOR_FORMAT_RGBA, 30, 20))
                             : slotPreferring(c.out);
        const Buffer given = out;
        ListPlugin plugin(option_, processors);
        if (c.scripts.empty() || !c.scripts.back().empty()) {
            EXPECT_EQ(plugin(in_, out), c.result);
        } else {
            EXPECT_THROW(plugin(in_, out), std::bad_function_call);
        }
        EXPECT_EQ(out, given);
        for (size_t i = 0; i < runs.size(); ++i) {
            ASSERT_EQ(runs[i]->size(), c.runs[i]) << i;
            for (const Seen& seen : *runs[i]) EXPECT_EQ(seen.option, option_.get());
        }
        if (c.out == kPicture) continue;
        const Buffer made = held(out);
        if (!c.made) {
            EXPECT_EQ(made, nullptr);
            continue;
        }
        EXPECT_TRUE(runs[0]->front().outEmpty);
        EXPECT_FALSE((*runs[0])[1].outEmpty);
        EXPECT_EQ((*runs[0])[1].outColorFormat, c.made);
        // Colour format from the output's extra; size and colour space from the input.
        ASSERT_TRUE(hasShape(made, 64, 48, c.made));
        EXPECT_EQ(made->getFormat()->getColorSpace(), 2);
        EXPECT_EQ(made->getOption(), nullptr);
        EXPECT_FALSE(made->isEmpty());
    }
}

TEST_F(DispatchTest, RetryRunsARealOperationIntoTheNewBuffer) {
    // The allocated output copies the input's format, extras included, so the
    // "preferred-color" of the input reaches the retry.
    Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 0,
                                    withExtra(extra::kPreferredColor, int{COLOR_FORMAT_NV21})));
    Buffer out = emptySlot(imageFormat(COLOR_FORMAT_NV12, 32, 24));
    ext::VexaPlugin plugin(option_, {ext::Operation::Rsz});
    scriptZocaResults({-3, 0});
    EXPECT_EQ(plugin(in, out), 0);
    const std::vector<ZocaCall> calls = takeZocaCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].dst.width[0], 32);
    EXPECT_EQ(calls[0].dst.colorFormat, ZOCA_CF_NV12);
    EXPECT_EQ(calls[1].dst.width[0], 64);
    EXPECT_EQ(calls[1].dst.height[0], 48);
    EXPECT_EQ(calls[1].dst.colorFormat, ZOCA_CF_NV21);
    EXPECT_EQ(calls[1].dst.addr[0], reinterpret_cast<uintptr_t>(held(out)->getDirectData()));
}

TEST_F(DispatchTest, PreferredColorMustBeAnIntOtherThanNone) {
    Buffer none = slotPreferring(COLOR_FORMAT_NONE);
    ListPlugin plugin(option_, {scripted({-3, -3, -3, -3}, std::make_shared<Runs>())});
    expectAssertion([&] { plugin(in_, none); },
                    {"!(cf != COLOR_FORMAT_NONE)", "%s\nnot supported",
                     "ext/plugin/VexaPlugin[770] ASSERT(cf != COLOR_FORMAT_NONE) failed."});
    EXPECT_EQ(held(none), nullptr);
    for (const FormatExtraValue& value :
         {FormatExtraValue(9.0f), FormatExtraValue(true), FormatExtraValue(std::string("rgba"))}) {
        Buffer out = slotPreferring(value);
        EXPECT_THROW(plugin(in_, out), std::bad_variant_access) << value.index();
        EXPECT_EQ(held(out), nullptr);
    }
}

// Plugins built and run from many threads at once. The first construction registers the
// view while others are still constructing; typed access only follows a constructor, so every
// thread sees the one registration (a second one would have freed the objects seen first) and
// the plugin's own pixel paths give the single-thread bytes.
TEST(ViewRegistration, ConcurrentConstructionRegistersOnceAndRunsAlike) {
    using Identify = core::detail::BufferIdentify<_ZOCA_IMGB>;
    constexpr int kThreads = 8;
    std::vector<uint8_t> pixels = randomBytes(64 * 48 * 3 / 2, 3);
    const Buffer in = CpuMediaBuffer::wrap(imageFormat(COLOR_FORMAT_NV12, 64, 48), pixels.data());
    // Each thread has its own option: a shared one's reference count would order the threads.
    auto run = [&in](ext::Operation operation) {
        auto option = std::make_shared<ImgpOption>();
        option->set(core::IMGP_OPTION_OWN_FLIP, int32_t{0});
        option->set(core::IMGP_OPTION_FLIP_TYPE, int32_t{3});
        ext::VexaPlugin plugin(option, {operation});
        Buffer out = emptySlot(imageFormat(COLOR_FORMAT_NV12, 32, 24));
        plugin(in, out);
        const auto* data = static_cast<const uint8_t*>(held(out)->getDirectData());
        return std::vector<uint8_t>(data, data + held(out)->getSize());
    };
    std::atomic<int> waiting{kThreads};
    std::vector<const Identify*> identify(kThreads);
    std::vector<std::vector<uint8_t>> downscaled(kThreads), flipped(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            waiting.fetch_sub(1);
            while (waiting.load() > 0) std::this_thread::yield();
            downscaled[t] = run(ext::Operation::RszPd);
            identify[t] = core::Singleton<Identify>::getBucket().instance.get();
            flipped[t] = run(ext::Operation::Flip);
        });
    }
    for (std::thread& thread : threads) thread.join();

    const std::vector<uint8_t> downscaledAlone = run(ext::Operation::RszPd);
    const std::vector<uint8_t> flippedAlone = run(ext::Operation::Flip);
    EXPECT_EQ(flippedAlone.size(), pixels.size());
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(identify[t], core::Singleton<Identify>::getBucket().instance.get());
        EXPECT_EQ((*identify[t])(), MEDIA_BUFFER_TYPE_ZOCA_IMGB);  // still alive
        EXPECT_EQ(downscaled[t], downscaledAlone) << t;
        EXPECT_EQ(flipped[t], flippedAlone) << t;
    }
}

}  // namespace
}  // namespace mivo::test
