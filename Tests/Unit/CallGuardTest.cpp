#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "CallGuard.h"
#include "Support/LogCapture.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
using Velmora::ExceptionBase;
using Velmora::GenericErrorException;
using Velmora::Wrapper::CallPolicy;
using Velmora::Wrapper::Guarded;
using Velmora::Wrapper::LogFileName;
using Velmora::Wrapper::LogSite;

const LogSite kSite(LogFileName{"Velmora::GuardTest", "Src/Wrapper/GuardTest"}, __LINE__);
const CallPolicy kPause{&kSite, "pause", "virtual function from IMediaBackend failed: "};

// An exception whose own accessors fail, as a careless media stack might throw.
struct TreacherousException : ExceptionBase {
    TreacherousException() : ExceptionBase(2, "never read") {}
    std::int32_t GetErrorType() const override { throw std::logic_error("accessor failed"); }
};

struct Line {
    int level;
    std::string text;
};

struct FailureCase {
    const char* name;
    std::function<void()> raise;
    UVA_STATUS status;
    std::vector<Line> lines;  // for an operation answering a status; the others stop after the first line
};

class CallGuardTest : public TestWithParam<FailureCase> {
protected:
    std::vector<Matcher<Tlog::Record>> Expected(std::size_t count) const {
        std::vector<Matcher<Tlog::Record>> matchers;
        for (std::size_t index = 0; index < count && index < GetParam().lines.size(); ++index) {
            matchers.push_back(VelmoraTest::LogLine(GetParam().lines[index].level, GetParam().lines[index].text));
        }
        return matchers;
    }

    VelmoraTest::LogCapture log;
};

// Only a status is mapped: a pointer operation answers its failure value and, like an operation without
// a result, logs just the first line.
TEST_P(CallGuardTest, Guarded_BodyThrows) {
    const bool returns = GetParam().status == UVA_STATUS_OK;
    EXPECT_EQ(Guarded(kPause, [&] { return GetParam().raise(), UVA_STATUS_OK; }), GetParam().status);
    EXPECT_THAT(log.Records(), ElementsAreArray(Expected(2)));
    log.Clear();
    static int target = 0;
    EXPECT_EQ(Guarded(kPause, static_cast<int*>(nullptr), [&] { return GetParam().raise(), &target; }),
              returns ? &target : nullptr);
    bool finished = false;
    Guarded(kPause, [&] { GetParam().raise(), finished = true; });
    EXPECT_EQ(finished, returns);
    auto lines = Expected(1);  // once for each of the two operations
    const auto once = lines;
    lines.insert(lines.end(), once.begin(), once.end());
    EXPECT_THAT(log.Records(), ElementsAreArray(lines));
}

// clang-format off
const FailureCase kFailures[] = {
    {"returns_normally", [] {}, UVA_STATUS_OK, {}},
    {"generic_error", [] { throw GenericErrorException("boom"); }, UVA_STATUS_ERROR, {{5, "Exception type 1: boom"}}},
    {"error_type_2", [] { throw ExceptionBase(2, "not here"); }, UVA_STATUS_ERROR_2, {{5, "Exception type 2: not here"}}},
    {"error_type_3", [] { throw ExceptionBase(3, "bad state"); }, UVA_STATUS_ERROR_3, {{5, "Exception type 3: bad state"}}},
    {"error_type_4", [] { throw ExceptionBase(4, "later"); }, UVA_STATUS_ERROR_2, {{5, "Exception type 4: later"}}},
    {"error_type_7", [] { throw ExceptionBase(7, "odd"); }, UVA_STATUS_ERROR,
     {{5, "Exception type 7: odd"}, {5, "Unknown error type caught: 7"}}},
    {"error_type_negative", [] { throw ExceptionBase(-1, "neg"); }, UVA_STATUS_ERROR,
     {{5, "Exception type -1: neg"}, {5, "Unknown error type caught: -1"}}},
    {"standard_exception", [] { throw std::runtime_error("x"); }, UVA_STATUS_ERROR,
     {{5, "pausevirtual function from IMediaBackend failed: x"}}},
    {"out_of_memory", [] { throw std::bad_alloc(); }, UVA_STATUS_ERROR,
     {{5, "pausevirtual function from IMediaBackend failed: std::bad_alloc"}}},
    {"thrown_int", [] { throw 42; }, UVA_STATUS_ERROR, {{5, "Unknown exception caught"}}},
    {"accessor_throws", [] { throw TreacherousException(); }, UVA_STATUS_ERROR, {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(EveryFailureKind, CallGuardTest, ValuesIn(kFailures),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CallGuardPolicyTest, Policy_LevelAndTexts) {
    VelmoraTest::LogCapture log;
    const CallPolicy quiet{&kSite, "getDuration", "virtual function from IMediaBackend failed: ", 2};
    EXPECT_EQ(Guarded(quiet, []() -> UVA_STATUS { throw ExceptionBase(7, "late"); }), UVA_STATUS_ERROR);
    const CallPolicy spaced{&kSite, "RequestDrmBackend", " virtual function from IDrmBackend failed: ", 5,
                            "Unknown exception caught in UVAWrapper::RequestDrmBackend"};
    Guarded(spaced, static_cast<void*>(nullptr), []() -> void* { throw std::runtime_error("gone"); });
    Guarded(spaced, static_cast<void*>(nullptr), []() -> void* { throw 1; });
    EXPECT_THAT(
        log.Records(),
        ElementsAreArray({VelmoraTest::LogLine(2, "Exception type 7: late"),
                          VelmoraTest::LogLine(5, "Unknown error type caught: 7"),
                          VelmoraTest::LogLine(5, "RequestDrmBackend virtual function from IDrmBackend failed: gone"),
                          VelmoraTest::LogLine(5, "Unknown exception caught in UVAWrapper::RequestDrmBackend")}));
}

TEST(ExceptionTest, what_StandardText) {
    const GenericErrorException failure("Uva Backend request failed!");
    EXPECT_EQ(failure.GetErrorType(), 1);
    EXPECT_STREQ(failure.What(), "Uva Backend request failed!");
    EXPECT_STREQ(failure.what(), std::exception().what());
}

}  // namespace
