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

// A processor answering `results` in turn (0 once they are used up), noting each run.
Processor scripted(std::vector<int> results, std::shared_ptr<std::vector<Seen>> runs) {
    auto next = std::make_shared<size_t>(0);
    return [results, runs, next](const std::shared_ptr<MediaBuffer>&,
                                 std::shared_ptr<MediaBuffer>& out,
                                 const std::shared_ptr<ImgpOption>& option) {
        runs->push_back({out->isEmpty(), out->getFormat()->getColorFormat(), option.get()});
        return *next < results.size() ? results[(*next)++] : 0;
    };
}

class DispatchTest : public PluginTest {
  protected:
    std::shared_ptr<MediaBuffer> in_ = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 2));
    std::shared_ptr<ImgpOption> option_ = std::make_shared<ImgpOption>();
    std::shared_ptr<std::vector<Seen>> first_ = std::make_shared<std::vector<Seen>>();
    std::shared_ptr<std::vector<Seen>> second_ = std::make_shared<std::vector<Seen>>();

    static std::shared_ptr<MediaBuffer> slotPreferring(int cf) {
        return emptySlot(imageFormat(COLOR_FORMAT_RGB, 30, 20, 0, [cf](MutableMediaFormat& f) {
            f.setExtra(extra::kPreferredColor, cf);
        }));
    }
};

TEST_F(DispatchTest, EmptyListReturnsZeroAndTouchesNothing) {
    ListPlugin plugin(option_, {});
    std::shared_ptr<MediaBuffer> out = slotPreferring(COLOR_FORMAT_RGBA);
    EXPECT_EQ(plugin(in_, out), 0);
    EXPECT_EQ(held(out), nullptr);
}

TEST_F(DispatchTest, EveryProcessorRunsAndOnlyTheLastResultCounts) {
    struct Case {
        int first;
        int second;
    };
    for (const Case c : {Case{-1, 0}, Case{0, -1}, Case{-2, 7}, Case{-3, 5}}) {
        first_->clear();
        second_->clear();
        std::shared_ptr<MediaBuffer> out = picture(imageFormat(COLOR_FORMAT_NV12, 64, 48));
        ListPlugin plugin(option_, {scripted({c.first}, first_), scripted({c.second}, second_)});
        EXPECT_EQ(plugin(in_, out), c.second) << c.first << " then " << c.second;
        EXPECT_EQ(first_->size(), 1u);
        ASSERT_EQ(second_->size(), 1u);
        EXPECT_EQ(second_->front().option, option_.get());
    }
}

TEST_F(DispatchTest, MinusThreeOnAnImmutableOutputStaysAndTheNextProcessorRuns) {
    std::shared_ptr<MediaBuffer> out =
        picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 0, [](MutableMediaFormat& f) {
            f.setExtra(extra::kPreferredColor, static_cast<int>(COLOR_FORMAT_RGBA));
        }));
    const std::shared_ptr<MediaBuffer> before = out;
    ListPlugin plugin(option_, {scripted({7}, first_), scripted({-3, 9}, second_)});
    EXPECT_EQ(plugin(in_, out), -3);
    EXPECT_EQ(second_->size(), 1u);
    EXPECT_EQ(out, before);
}

TEST_F(DispatchTest, MinusThreeWithoutPreferredColorAllocatesNothing) {
    std::shared_ptr<MediaBuffer> out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 30, 20));
    ListPlugin plugin(option_, {scripted({-3, 0}, first_)});
    EXPECT_EQ(plugin(in_, out), -3);
    EXPECT_EQ(first_->size(), 1u);
    EXPECT_EQ(held(out), nullptr);
}

TEST_F(DispatchTest, RetryAllocatesTheInputShapeInThePreferredColorOnce) {
    std::shared_ptr<MediaBuffer> out = slotPreferring(COLOR_FORMAT_RGBA);
    ListPlugin plugin(option_, {scripted({-3, 4}, first_)});
    EXPECT_EQ(plugin(in_, out), 4);
    ASSERT_EQ(first_->size(), 2u);
    EXPECT_TRUE((*first_)[0].outEmpty);
    EXPECT_FALSE((*first_)[1].outEmpty);
    EXPECT_EQ((*first_)[1].outColorFormat, COLOR_FORMAT_RGBA);

    const std::shared_ptr<MediaBuffer> made = held(out);
    ASSERT_NE(made, nullptr);
    // Colour format from the output's extra; size and colour space from the input.
    EXPECT_EQ(made->getCols(), 64);
    EXPECT_EQ(made->getRows(), 48);
    EXPECT_EQ(made->getFormat()->getColorFormat(), COLOR_FORMAT_RGBA);
    EXPECT_EQ(made->getFormat()->getColorSpace(), 2);
    EXPECT_EQ(made->getOption(), nullptr);
    EXPECT_FALSE(made->isEmpty());
}

TEST_F(DispatchTest, MinusThreeTwiceKeepsTheNewOutputAndIsNotRetriedAgain) {
    std::shared_ptr<MediaBuffer> out = slotPreferring(COLOR_FORMAT_BGRA);
    ListPlugin plugin(option_, {scripted({-3, -3, -3}, first_)});
    EXPECT_EQ(plugin(in_, out), -3);
    EXPECT_EQ(first_->size(), 2u);
    ASSERT_NE(held(out), nullptr);
    EXPECT_EQ(held(out)->getFormat()->getColorFormat(), COLOR_FORMAT_BGRA);

    // A later processor's success is the answer even so.
    first_->clear();
    std::shared_ptr<MediaBuffer> other = slotPreferring(COLOR_FORMAT_BGRA);
    ListPlugin thenSucceeds(option_, {scripted({-3, -3}, first_), scripted({0}, second_)});
    EXPECT_EQ(thenSucceeds(in_, other), 0);
    EXPECT_EQ(first_->size(), 2u);
    EXPECT_EQ(second_->size(), 1u);
}

TEST_F(DispatchTest, RetryRunsARealOperationIntoTheNewBuffer) {
    // The allocated output copies the input's format, extras included, so the
    // "preferred-color" of the input reaches the retry.
    std::shared_ptr<MediaBuffer> in =
        picture(imageFormat(COLOR_FORMAT_NV12, 64, 48, 0, [](MutableMediaFormat& f) {
            f.setExtra(extra::kPreferredColor, static_cast<int>(COLOR_FORMAT_NV21));
        }));
    std::shared_ptr<MediaBuffer> out = emptySlot(imageFormat(COLOR_FORMAT_NV12, 32, 24));
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
    EXPECT_EQ(calls[1].dst.addr[0], addressOf(*held(out)));
}

TEST_F(DispatchTest, EmptyProcessorThrowsBadFunctionCallAfterTheEarlierOnesRan) {
    std::shared_ptr<MediaBuffer> out = emptySlot(imageFormat(COLOR_FORMAT_RGBA, 30, 20));
    ListPlugin plugin(option_, {scripted({0}, first_), Processor()});
    EXPECT_THROW(plugin(in_, out), std::bad_function_call);
    EXPECT_EQ(first_->size(), 1u);
}

TEST_F(DispatchTest, PreferredColorNoneIsAnAssertion) {
    std::shared_ptr<MediaBuffer> out = slotPreferring(COLOR_FORMAT_NONE);
    ListPlugin plugin(option_, {scripted({-3}, first_)});
    try {
        plugin(in_, out);
        FAIL() << "no assertion";
    } catch (const AssertionFailure& failure) {
        EXPECT_EQ(failure.condition, "!(cf != COLOR_FORMAT_NONE)");
        EXPECT_EQ(failure.tag, "MivoVexaPlugin");
        EXPECT_EQ(failure.format, "%s\nnot supported");
        EXPECT_EQ(failure.message,
                  "ext/plugin/VexaPlugin[770] ASSERT(cf != COLOR_FORMAT_NONE) failed.");
    }
    EXPECT_EQ(held(out), nullptr);
}

TEST_F(DispatchTest, PreferredColorOfAnotherTypeThrowsBadVariantAccess) {
    for (const FormatExtraValue& value :
         {FormatExtraValue(9.0f), FormatExtraValue(true), FormatExtraValue(std::string("rgba"))}) {
        std::shared_ptr<MediaBuffer> out =
            emptySlot(imageFormat(COLOR_FORMAT_RGB, 30, 20, 0, [&value](MutableMediaFormat& f) {
                f.setExtra(extra::kPreferredColor, value);
            }));
        ListPlugin plugin(option_, {scripted({-3}, first_)});
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
    const std::shared_ptr<MediaBuffer> in = picture(imageFormat(COLOR_FORMAT_NV12, 18, 10));

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
