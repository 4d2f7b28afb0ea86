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
using Runs = std::shared_ptr<std::vector<Seen>>;

// A processor answering `results` in turn (0 once they are used up), noting each run.
Processor scripted(std::vector<int> results, Runs runs) {
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
    Runs first_ = std::make_shared<std::vector<Seen>>();
    Runs second_ = std::make_shared<std::vector<Seen>>();

    static Buffer slotPreferring(FormatExtraValue cf) {
        return emptySlot(
            imageFormat(COLOR_FORMAT_RGB, 30, 20, 0, withExtra(extra::kPreferredColor, cf)));
    }
};

TEST_F(DispatchTest, EveryProcessorRunsAndOnlyTheLastResultCounts) {
    Buffer untouched = slotPreferring(COLOR_FORMAT_RGBA);
    EXPECT_EQ(ListPlugin(option_, {})(in_, untouched), 0);  // an empty list
    EXPECT_EQ(held(untouched), nullptr);
    for (const auto& [first, second] : {std::pair{-1, 0}, {0, -1}, {-2, 7}, {-3, 5}}) {
        first_->clear();
        second_->clear();
        Buffer out = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48));
        ListPlugin plugin(option_, {scripted({first}, first_), scripted({second}, second_)});
        EXPECT_EQ(plugin(in_, out), second) << first << " then " << second;
        EXPECT_EQ(first_->size(), 1u);
        ASSERT_EQ(second_->size(), 1u);
        EXPECT_EQ(second_->front().option, option_.get());
    }
}

// Without a retry: an immutable output, or no preferred colour.
TEST_F(DispatchTest, MinusThreeIsOnlyRetriedOnAnEmptySlotWithAPreferredColor) {
    Buffer out = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 0,
                                     withExtra(extra::kPreferredColor, int{COLOR_FORMAT_RGBA})));
    const Buffer before = out;
    ListPlugin plugin(option_, {scripted({7}, first_), scripted({-3, 9}, second_)});
    EXPECT_EQ(plugin(in_, out), -3);
    EXPECT_EQ(second_->size(), 1u);
    EXPECT_EQ(out, before);

    first_->clear();
    out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 30, 20));
    ListPlugin plain(option_, {scripted({-3, 0}, first_)});
    EXPECT_EQ(plain(in_, out), -3);
    EXPECT_EQ(first_->size(), 1u);
    EXPECT_EQ(held(out), nullptr);
}

TEST_F(DispatchTest, RetryAllocatesTheInputShapeInThePreferredColorOnce) {
    Buffer out = slotPreferring(COLOR_FORMAT_RGBA);
    ListPlugin plugin(option_, {scripted({-3, 4}, first_)});
    EXPECT_EQ(plugin(in_, out), 4);
    ASSERT_EQ(first_->size(), 2u);
    EXPECT_TRUE((*first_)[0].outEmpty);
    EXPECT_FALSE((*first_)[1].outEmpty);
    EXPECT_EQ((*first_)[1].outColorFormat, COLOR_FORMAT_RGBA);
    // Colour format from the output's extra; size and colour space from the input.
    const Buffer made = held(out);
    ASSERT_TRUE(hasShape(made, 64, 48, COLOR_FORMAT_RGBA));
    EXPECT_EQ(made->getFormat()->getColorSpace(), 2);
    EXPECT_EQ(made->getOption(), nullptr);
    EXPECT_FALSE(made->isEmpty());
}

TEST_F(DispatchTest, MinusThreeTwiceKeepsTheNewOutputAndIsNotRetriedAgain) {
    Buffer out = slotPreferring(COLOR_FORMAT_BGRA);
    ListPlugin plugin(option_, {scripted({-3, -3, -3}, first_)});
    EXPECT_EQ(plugin(in_, out), -3);
    EXPECT_EQ(first_->size(), 2u);
    EXPECT_TRUE(hasShape(held(out), 64, 48, COLOR_FORMAT_BGRA));

    // A later processor's success is the answer even so.
    first_->clear();
    Buffer other = slotPreferring(COLOR_FORMAT_BGRA);
    ListPlugin thenSucceeds(option_, {scripted({-3, -3}, first_), scripted({0}, second_)});
    EXPECT_EQ(thenSucceeds(in_, other), 0);
    EXPECT_EQ(first_->size(), 2u);
    EXPECT_EQ(second_->size(), 1u);
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

TEST_F(DispatchTest, EmptyProcessorThrowsBadFunctionCallAfterTheEarlierOnesRan) {
    Buffer out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 30, 20));
    ListPlugin plugin(option_, {scripted({0}, first_), Processor()});
    EXPECT_THROW(plugin(in_, out), std::bad_function_call);
    EXPECT_EQ(first_->size(), 1u);
}

TEST_F(DispatchTest, PreferredColorMustBeAnIntOtherThanNone) {
    Buffer none = slotPreferring(COLOR_FORMAT_NONE);
    ListPlugin plugin(option_, {scripted({-3, -3, -3, -3}, first_)});
    expectAssertion([&] { plugin(in_, none); }, "!(cf != COLOR_FORMAT_NONE)", "%s\nnot supported",
                    "ext/plugin/VexaPlugin[770] ASSERT(cf != COLOR_FORMAT_NONE) failed.");
    EXPECT_EQ(held(none), nullptr);
    for (const FormatExtraValue& value :
         {FormatExtraValue(9.0f), FormatExtraValue(true), FormatExtraValue(std::string("rgba"))}) {
        Buffer out = slotPreferring(value);
        EXPECT_THROW(plugin(in_, out), std::bad_variant_access) << value.index();
        EXPECT_EQ(held(out), nullptr);
    }
}

// Registration happens once however many plugins are built at the same time. Each thread
// keeps the registry objects it saw right after its constructor; a second registration would
// have replaced (and freed) the ones seen first.
TEST(ViewRegistration, ConcurrentConstructionRegistersOnce) {
    using Identify = core::detail::BufferIdentify<_ZOCA_IMGB>;
    using Transform = core::detail::BufferTransform<_ZOCA_IMGB>;
    constexpr int kThreads = 16;
    std::atomic<int> waiting{kThreads};
    std::vector<const Identify*> identify(kThreads);
    std::vector<const Transform*> transform(kThreads);
    std::vector<int> widths(kThreads);
    const Buffer in = picture(imageFormat(COLOR_FORMAT_NV12, 18, 10));

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            waiting.fetch_sub(1);
            while (waiting.load() > 0) std::this_thread::yield();
            ext::VexaPlugin plugin(std::make_shared<ImgpOption>(), {ext::Operation::Rsz});
            identify[t] = core::Singleton<Identify>::getBucket().instance.get();
            transform[t] = core::Singleton<Transform>::getBucket().instance.get();
            widths[t] = describe(*in).width[1];
        });
    }
    for (std::thread& thread : threads) thread.join();

    ext::VexaPlugin later(nullptr, {});
    for (int t = 0; t < kThreads; ++t) {
        ASSERT_NE(identify[t], nullptr);
        EXPECT_EQ(identify[t], core::Singleton<Identify>::getBucket().instance.get());
        EXPECT_EQ(transform[t], core::Singleton<Transform>::getBucket().instance.get());
        // Still alive: calling it would be a use after free under the sanitizer otherwise.
        EXPECT_EQ((*identify[t])(), MEDIA_BUFFER_TYPE_ZOCA_IMGB);
        EXPECT_EQ(widths[t], 9);
    }
}

}  // namespace
}  // namespace mivo::test
