#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/values/Expected.h"
#include "runtime/values/Log.h"
#include "runtime/values/MobilePrivacyStatus.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/TryCatch.h"
#include "runtime/values/Variant.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;

namespace {

// A value whose text conversion counts its calls and can be told to throw.
struct Probe {
    mutable int* calls;
    bool fail;
};

}  // namespace

namespace VelmoraMobile {
void ToStringImpl(std::ostream& out, const Probe& probe, const ToStringOptions&) {
    ++*probe.calls;
    if (probe.fail) {
        throw std::runtime_error("conversion failed");
    }
    out << "probe";
}
}  // namespace VelmoraMobile

namespace {

struct Nested {
    int levels;
};

}  // namespace

namespace VelmoraMobile {
void ToStringImpl(std::ostream& out, const Nested& nested, const ToStringOptions& options) {
    out << "(";
    if (nested.levels > 0) {
        StringUtils::ToString(out, Nested{nested.levels - 1}, options);
    }
    out << ")";
}
}  // namespace VelmoraMobile

TEST(ExpectedTest, AccessorsThrowBadCastOnTheWrongAlternative) {
    Expected<int> error(SdkError("x.y", "z", DebugInfo()));
    try {
        error.Value();
        FAIL() << "no throw";
    } catch (const SdkError& e) {
        EXPECT_EQ(e.GetCode(), "std.bad_cast");
        EXPECT_EQ(e.GetMessage(), "Value type not available.");
        EXPECT_EQ(e.GetDebugInfo().file, "Headers/Expected");
        EXPECT_GT(e.GetDebugInfo().line, 0);
        EXPECT_FALSE(e.GetDebugInfo().stack_trace.empty());
    }
    EXPECT_EQ(error.Error().GetCode(), "x.y");
    EXPECT_EQ(error.Error().GetDebugInfo().line, -1);

    Expected<int> value(7);
    EXPECT_EQ(value.Value(), 7);
    EXPECT_EQ(value.ConstValue(), 7);
    try {
        value.Error();
        FAIL() << "no throw";
    } catch (const SdkError& e) {
        EXPECT_EQ(e.GetCode(), "std.bad_cast");
        EXPECT_EQ(e.GetMessage(), "Error type not available.");
    }

    auto empty = Expected<int>::Disengaged();
    EXPECT_FALSE(empty.HasValue());
    EXPECT_THROW(empty.Value(), SdkError);
    EXPECT_THROW(empty.Error(), SdkError);
}

TEST(ExpectedTest, NullPointerIsASuccessAndCopiesKeepTheAlternative) {
    Expected<std::shared_ptr<Variant>> null_value(std::shared_ptr<Variant>{});
    EXPECT_TRUE(null_value.HasValue());
    EXPECT_EQ(null_value.Value(), nullptr);

    Expected<std::string> error(SdkError("a.b", "m", DebugInfo()));
    Expected<std::string> copy = error;
    copy = Expected<std::string>(std::string("now a value"));
    EXPECT_EQ(copy.Value(), "now a value");
    EXPECT_EQ(error.Error().GetMessage(), "m");
}

TEST(GuardTest, EveryExceptionStaysInsideTheGuard) {
    std::string code;
    TryCatch([] { throw std::invalid_argument("stoi"); }, [&](SdkError& e) { code = e.GetCode(); });
    EXPECT_EQ(code, "std.logic_error.invalid_argument");

    TryCatch([] { VELMORA_THROW("a.b", "thrown"); }, [&](SdkError& e) { code = e.GetCode(); });
    EXPECT_EQ(code, "a.b");

    EXPECT_NO_THROW(TrySwallow([] { throw 42; }));
    EXPECT_NO_THROW(TrySwallow([] { throw std::runtime_error("x"); }));

    bool finally_ran = false;
    TryCatchFinally([] { throw SdkError("c", "m", DebugInfo()); }, [](SdkError&) {}, [&] { finally_ran = true; });
    EXPECT_TRUE(finally_ran);

    // Also when the handler fails: the cleanup runs, then the handler's error goes on.
    finally_ran = false;
    EXPECT_THROW(
        TryCatchFinally([] { throw SdkError("c", "m", DebugInfo()); },
                        [](SdkError&) { throw std::runtime_error("handler failed"); }, [&] { finally_ran = true; }),
        std::runtime_error);
    EXPECT_TRUE(finally_ran);
}

TEST(FormatTest, PlaceholdersTakeTheNextArgumentWhateverItsType) {
    std::string first = "5012345678";
    std::string second = "0987654321";
    EXPECT_EQ(StringUtils::FormatString("%d%d", first, second), "50123456780987654321");
    std::string key = "d_mid";
    std::string empty;
    EXPECT_EQ(StringUtils::FormatString("%s=%s", key, empty), "d_mid=");
    EXPECT_EQ(StringUtils::FormatString("ID Service - Identifier has malformed value: %@", key),
              "ID Service - Identifier has malformed value: d_mid");
    std::chrono::seconds ttl(30);
    EXPECT_EQ(StringUtils::FormatString("ttl: %d", ttl), "ttl: 30000 ms");
    // Past the end of the pack nothing is written; a lone "%" stays.
    EXPECT_EQ(StringUtils::FormatString("%s|%s|%s", key, key), "d_mid|d_mid|");
    EXPECT_EQ(StringUtils::FormatString("100% sure %s", key), "100% sure d_mid");
    // With no arguments the text stands as it is.
    EXPECT_EQ(StringUtils::FormatString("keep %s and %01"), "keep %s and %01");
    // Strings are never quoted or shortened.
    std::string long_text(2000000, 'x');
    EXPECT_EQ(StringUtils::FormatString("%s", long_text).size(), long_text.size());
}

TEST(FormatTest, ThrowingConversionWritesErrorAndTheRestOfTheLine) {
    int calls = 0;
    Probe bad{&calls, true};
    std::string tail = "tail";
    EXPECT_EQ(StringUtils::FormatString("a %s b %s", bad, tail), "a ERROR b tail");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StringUtils::GetCurrentDepth(), 0u);
}

TEST(FormatTest, DeepNestingIsCutWithEllipsis) {
    std::string text = StringUtils::ToString(Nested{100});
    EXPECT_NE(text.find("..."), std::string::npos);
    EXPECT_EQ(StringUtils::GetCurrentDepth(), 0u);
}

TEST(LogTest, ClosedGateBuildsNoText) {
    VelmoraTest::LogCapture capture(LoggingMode::WARNING_LOG);
    int calls = 0;
    Probe probe{&calls, false};
    Log::Debug("tag", "%s", probe);
    Log::Trace("tag", "%s", probe);
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(capture.Lines().empty());

    Log::Warning("tag", "value %s", probe);
    Log::Error("tag", "no args %s");
    EXPECT_EQ(calls, 1);
    ASSERT_EQ(capture.Lines().size(), 2u);
    EXPECT_EQ(capture.Lines()[0].message, "value probe");
    EXPECT_EQ(capture.Lines()[0].tag, "tag");
    EXPECT_EQ(capture.Lines()[1].message, "no args %s");
}

TEST(LogTest, EachLevelPrintsItsOwnLinesAndThoseAboveIt) {
    struct Case {
        LoggingMode level;
        std::vector<std::string> printed;
    };
    const std::vector<Case> cases = {
        {LoggingMode::ERROR_LOG, {"error"}},
        {LoggingMode::WARNING_LOG, {"error", "warning"}},
        {LoggingMode::DEBUG_LOG, {"error", "warning", "debug"}},
        {LoggingMode::VERBOSE_LOG, {"error", "warning", "debug", "trace"}},
    };
    for (const auto& c : cases) {
        VelmoraTest::LogCapture capture(c.level);
        Log::Error("tag", "error");
        Log::Warning("tag", "warning");
        Log::Debug("tag", "debug");
        Log::Trace("tag", "trace");
        std::vector<std::string> printed;
        for (const auto& line : capture.Lines()) printed.push_back(line.message);
        EXPECT_EQ(printed, c.printed) << static_cast<int>(c.level);
        // Error and Warning keep one gate, open at every level.
        EXPECT_TRUE(Log::Precheck(LoggingMode::WARNING_LOG));
    }
}

TEST(LogTest, ASinkMayLogAndASlowSinkHoldsUpOnlyItsOwnThread) {
    VelmoraTest::LogCapture capture(LoggingMode::WARNING_LOG);
    std::promise<void> entered, release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> blocked_once{false};
    std::vector<std::string> lines;
    std::mutex mutex;
    Log::SetSink([&](LoggingMode, const char*, const std::string& message) {
        if (message == "nested") {
            std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(message);
            return;
        }
        Log::Warning("tag", "nested");  // a sink that logs must not deadlock
        if (message == "slow" && !blocked_once.exchange(true)) {
            entered.set_value();
            released.wait();  // as a blocked stderr would
        }
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(message);
    });
    std::thread slow([] { Log::Warning("tag", "slow"); });
    entered.get_future().wait();
    auto other = std::async(std::launch::async, [] { Log::Warning("tag", "other"); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    release.set_value();
    slow.join();
    Log::SetSink(nullptr);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "nested"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "other"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "slow"), 1);
}

TEST(VariantTest, ReaderOfTheWrongKindLeavesOutUntouched) {
    auto text = Variant::FromString("abc");
    int32_t number = 5;
    EXPECT_FALSE(text->GetInteger(number));
    EXPECT_EQ(number, 5);
    int64_t wide = 6;
    EXPECT_FALSE(Variant::FromInteger(1)->GetLong(wide));
    EXPECT_EQ(wide, 6);
    Variant::VariantVector vector{text};
    Variant::VariantMap map{{"k", text}};
    EXPECT_FALSE(Variant::FromVariantMap(map)->GetVariantVector(vector));
    EXPECT_FALSE(Variant::FromNull()->GetVariantVector(vector));
    EXPECT_EQ(vector.size(), 1u);
    std::string out = "keep";
    EXPECT_FALSE(Variant::FromInteger(3)->GetString(out));
    EXPECT_EQ(out, "keep");
    EXPECT_EQ(Variant::FromNull()->GetKind(), VariantKind::NULL_KIND);
    EXPECT_TRUE(text->GetString(out));
    EXPECT_EQ(out, "abc");
}

TEST(StringUtilsTest, SplitKeepsEmptyTokensAndUsesTheWholeDelimiter) {
    using V = std::vector<std::string>;
    EXPECT_EQ(StringUtils::Split("&a&&b", "&"), (V{"", "a", "", "b"}));
    EXPECT_EQ(StringUtils::Split("type%01%011", "%01"), (V{"type", "", "1"}));
    EXPECT_EQ(StringUtils::Split("a0b1", "%01"), (V{"a0b1"}));
    EXPECT_EQ(StringUtils::Split("", "&"), (V{""}));
    EXPECT_EQ(StringUtils::Quotify("AUTHENTICATED"), "\"AUTHENTICATED\"");
}

TEST(PrivacyStatusTest, TextFormsRoundTripAndUnknownTextGivesUnknown) {
    for (auto status : {MobilePrivacyStatus::OPT_IN, MobilePrivacyStatus::OPT_OUT, MobilePrivacyStatus::UNKNOWN}) {
        EXPECT_EQ(StringToMobilePrivacyStatus(MobilePrivacyStatusToString(status)), status);
    }
    EXPECT_EQ(StringToMobilePrivacyStatus("OPTEDOUT"), MobilePrivacyStatus::UNKNOWN);
    EXPECT_EQ(StringUtils::ToString(MobilePrivacyStatus::OPT_OUT), "optedout");
}
