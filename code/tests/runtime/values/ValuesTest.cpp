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
#include "tests/runtime/Gate.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;

namespace {
// A value whose text conversion counts its calls and can be told to throw.
struct Probe {
    mutable int* calls;
    bool fail;
};
struct Nested {
    int levels;
};
}  // namespace

namespace VelmoraMobile {
void ToStringImpl(std::ostream& out, const Probe& probe, const ToStringOptions&) {
    ++*probe.calls;
    if (probe.fail) throw std::runtime_error("conversion failed");
    out << "probe";
}
void ToStringImpl(std::ostream& out, const Nested& nested, const ToStringOptions& options) {
    out << "(";
    if (nested.levels > 0) StringUtils::ToString(out, Nested{nested.levels - 1}, options);
    out << ")";
}
}  // namespace VelmoraMobile

TEST(ExpectedTest, AccessorsThrowBadCastOnTheWrongAlternative) {
    auto thrown = [](const std::function<void()>& access) {
        try {
            access();
        } catch (const SdkError& e) {
            return e.GetCode() + "|" + e.GetMessage();
        }
        return std::string("no throw");
    };
    Expected<int> error(SdkError("x.y", "z", DebugInfo())), value(7), empty = Expected<int>::Disengaged();
    EXPECT_EQ(thrown([&] { error.Value(); }), "std.bad_cast|Value type not available.");
    EXPECT_EQ(value.ConstValue(), 7);
    EXPECT_EQ(thrown([&] { value.Error(); }), "std.bad_cast|Error type not available.");
    EXPECT_FALSE(empty.HasValue());
    EXPECT_THROW(empty.Error(), SdkError);
    EXPECT_TRUE(Expected<std::shared_ptr<Variant>>(std::shared_ptr<Variant>{}).HasValue()) << "null is a success";
}

TEST(GuardTest, EveryExceptionStaysInsideTheGuard) {
    std::string code;
    TryCatch([] { throw std::invalid_argument("stoi"); }, [&](SdkError& e) { code = e.GetCode(); });
    EXPECT_EQ(code, "std.logic_error.invalid_argument");
    EXPECT_NO_THROW(TrySwallow([] { throw 42; }));
    // When the handler fails the cleanup still runs, then the handler's error goes on.
    bool finally_ran = false;
    EXPECT_THROW(
        TryCatchFinally([] { throw SdkError("c", "m", DebugInfo()); },
                        [](SdkError&) { throw std::runtime_error("handler failed"); }, [&] { finally_ran = true; }),
        std::runtime_error);
    EXPECT_TRUE(finally_ran);
}

// A throwing conversion writes ERROR and deep nesting is cut.
TEST(FormatTest, PlaceholdersTakeTheNextArgumentWhateverItsType) {
    std::string first = "5012345678", second = "0987654321", key = "d_mid", empty, long_text(2000000, 'x');
    int calls = 0;
    EXPECT_EQ(StringUtils::FormatString("%d%d", first, second), "50123456780987654321");
    EXPECT_EQ(StringUtils::FormatString("%s=%s", key, empty), "d_mid=");
    EXPECT_EQ(StringUtils::FormatString("malformed value: %@", key), "malformed value: d_mid");
    EXPECT_EQ(StringUtils::FormatString("ttl: %d", std::chrono::seconds(30)), "ttl: 30000 ms");
    EXPECT_EQ(StringUtils::FormatString("%s|%s|%s", key, key), "d_mid|d_mid|");
    EXPECT_EQ(StringUtils::FormatString("100% sure %s", key), "100% sure d_mid");
    EXPECT_EQ(StringUtils::FormatString("keep %s and %01"), "keep %s and %01");
    EXPECT_EQ(StringUtils::FormatString("%s", long_text).size(), long_text.size());
    EXPECT_EQ(StringUtils::FormatString("a %s b %s", Probe{&calls, true}, key), "a ERROR b d_mid");
    EXPECT_EQ(calls, 1);
    EXPECT_NE(StringUtils::ToString(Nested{100}).find("..."), std::string::npos);
    EXPECT_EQ(StringUtils::GetCurrentDepth(), 0u);
}

TEST(LogTest, EachLevelPrintsItsOwnLinesAndAClosedGateBuildsNoText) {
    // Each level in turn opens the gate to one more of these lines.
    const LoggingMode levels[] = {LoggingMode::ERROR_LOG, LoggingMode::WARNING_LOG, LoggingMode::DEBUG_LOG,
                                  LoggingMode::VERBOSE_LOG};
    const std::vector<std::string> lines = {"error", "warning probe", "debug probe", "trace probe"};
    for (size_t open = 1; open <= lines.size(); ++open) {
        SCOPED_TRACE(open);
        VelmoraTest::LogCapture capture(levels[open - 1]);
        int calls = 0;
        Probe probe{&calls, false};
        Log::Error("tag", "error");
        Log::Warning("tag", "warning %s", probe);
        Log::Debug("tag", "debug %s", probe);
        Log::Trace("tag", "trace %s", probe);
        std::vector<std::string> printed;
        for (const auto& line : capture.Lines()) printed.push_back(line.message);
        EXPECT_EQ(printed, std::vector<std::string>(lines.begin(), lines.begin() + open));
        EXPECT_EQ(calls, static_cast<int>(printed.size()) - 1);
        EXPECT_TRUE(Log::Precheck(LoggingMode::WARNING_LOG));
    }
}

TEST(LogTest, ASinkMayLogAndASlowSinkHoldsUpOnlyItsOwnThread) {
    VelmoraTest::LogCapture capture(LoggingMode::WARNING_LOG);
    VelmoraTest::Gate entered, release;
    std::atomic<bool> blocked_once{false};
    std::vector<std::string> lines;
    std::mutex mutex;
    Log::SetSink([&](LoggingMode, const char*, const std::string& message) {
        if (message != "nested") Log::Warning("tag", "nested");  // a sink that logs must not deadlock
        if (message == "slow" && !blocked_once.exchange(true)) {
            entered.Open();
            release.Wait();  // as a blocked stderr would
        }
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(message);
    });
    std::thread slow([] { Log::Warning("tag", "slow"); });
    entered.Wait();
    auto other = std::async(std::launch::async, [] { Log::Warning("tag", "other"); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    release.Open();
    slow.join();
    Log::SetSink(nullptr);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "nested"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "slow"), 1);
}

TEST(VariantTest, ReaderOfTheWrongKindLeavesOutUntouched) {
    int32_t number = 5;
    Variant::VariantVector vector{Variant::FromNull()};
    std::string out = "keep";
    EXPECT_FALSE(Variant::FromString("abc")->GetInteger(number) ||
                 Variant::FromVariantMap({})->GetVariantVector(vector) || Variant::FromInteger(3)->GetString(out));
    EXPECT_TRUE(number == 5 && vector.size() == 1u && out == "keep");
}

TEST(VariantTest, DeferredVectorIsMadeOnceByTheFirstReaderOfAnyThread) {
    std::atomic<int> made{0};
    auto list = Variant::FromDeferredVector([&made] {
        ++made;
        return Variant::VariantVector{Variant::FromString("a"), Variant::FromInteger(2)};
    });
    EXPECT_EQ(list->GetKind(), VariantKind::VECTOR);
    EXPECT_EQ(made.load(), 0) << "nothing is made before a read";
    std::vector<std::future<std::string>> readers;
    for (int i = 0; i < 4; ++i) {
        readers.push_back(std::async(std::launch::async, [&list] { return list->ToStringImpl({}); }));
    }
    Variant::VariantVector elements;
    ASSERT_TRUE(list->GetVariantVector(elements));
    std::string text;
    EXPECT_TRUE(elements.size() == 2u && elements[0]->GetString(text) && text == "a");
    for (auto& reader : readers) {
        EXPECT_EQ(reader.get(), Variant::FromVariantVector(elements)->ToStringImpl({}));
    }
    EXPECT_EQ(made.load(), 1);
}
// The texts themselves are read and written by every configuration and privacy test.
TEST(PrivacyStatusTest, TextIsCaseSensitive) {
    EXPECT_EQ(StringToMobilePrivacyStatus("OPTEDOUT"), MobilePrivacyStatus::UNKNOWN);
}
