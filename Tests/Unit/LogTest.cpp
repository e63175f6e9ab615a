#include <gmock/gmock.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

#include "Log.h"
#include "Support/LogCapture.h"

namespace {

using namespace ::testing;
using Velmora::Wrapper::LogFileName;
using Velmora::Wrapper::LogSite;
using VelmoraTest::LogLine;

constexpr LogFileName kTestLogFile{"Velmora::LogTest", "Src/Wrapper/LogTest"};

class LogTest : public Test {
protected:
    VelmoraTest::LogCapture log;
    const LogSite site{kTestLogFile, __LINE__};
};

TEST_F(LogTest, Log_LevelBelowThreshold) {
    Tlog::SetThreshold(kTestLogFile.context, 3);
    int built = 0;
    const auto words = [&](const char* text) {
        ++built;
        return text;
    };
    VELMORA_LOG(site, 2) << words("trace");
    VELMORA_LOG(site, 3) << words("at threshold");
    VELMORA_LOG(site, 5) << words("failure");
    EXPECT_EQ(built, 2);
    EXPECT_THAT(log.Records(), ElementsAre(LogLine(3, "at threshold"), LogLine(5, "failure")));
}

TEST_F(LogTest, Log_ContextFileLine) {
    const int line = __LINE__ + 1;
    VELMORA_LOG(site, 4) << "pause"
                         << "; " << 42 << "; ";
    const auto records = log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].context, "Velmora::LogTest");
    EXPECT_EQ(records[0].file, "Src/Wrapper/LogTest");
    EXPECT_EQ(records[0].line, line);
    EXPECT_EQ(records[0].text, "pause; 42; ");
}

TEST_F(LogTest, Log_NullContext) {
    const LogSite nullSite(nullptr, "Src/Wrapper/Null");
    Tlog::SetDefaultThreshold(9);
    VELMORA_LOG(nullSite, 0) << "always";
    EXPECT_THAT(log.Records(), ElementsAre(LogLine(0, "always")));
}

TEST_F(LogTest, Log_UnbracedIfElse) {
    const bool taken = false;
    if (taken)
        VELMORA_LOG(site, 5) << "then";
    else
        VELMORA_LOG(site, 5) << "else";
    EXPECT_THAT(log.Records(), ElementsAre(LogLine(5, "else")));
}

TEST_F(LogTest, SetThreshold_SecondField) {
    static_assert(offsetof(TlogContext, threshold) == 4, "callers read the threshold at this offset");
    Tlog::SetThreshold(kTestLogFile.context, 7);
    EXPECT_EQ(reinterpret_cast<const std::int32_t*>(site.context)[1], 7);
}

TEST_F(LogTest, ResetThresholds_Environment) {
    ::setenv("TLOG_LEVELS",
             "default=5,Velmora::LogTest=2,Velmora::Wrapper:Drm=1,default=x,Velmora::Elsewhere=3x,junk,=2,"
             "Velmora::Elsewhere=2147483648",
             1);
    internal::CaptureStderr();
    Tlog::ResetThresholds();
    const std::string warning = internal::GetCapturedStderr();
    ::unsetenv("TLOG_LEVELS");
    EXPECT_EQ(warning,
              "TLOG_LEVELS: ignoring \"default=x\", \"Velmora::Elsewhere=3x\", \"junk\", \"=2\", "
              "\"Velmora::Elsewhere=2147483648\" (expected NAME=LEVEL, LEVEL a whole number)\n");
    const LogSite drm(LogFileName{"Velmora::Wrapper:Drm", "Src/Wrapper/DrmBackendWrapper"}, __LINE__);
    const LogSite other(LogFileName{"Velmora::Elsewhere", "Src/Wrapper/Elsewhere"}, __LINE__);
    EXPECT_EQ(site.context->threshold.load(), 2);
    EXPECT_EQ(drm.context->threshold.load(), 1);
    EXPECT_EQ(other.context->threshold.load(), 5);
    Tlog::ResetThresholds();
    EXPECT_EQ(site.context->threshold.load(), Tlog::kDefaultThreshold);
}

// A log that cannot take the line (no memory): the guarded statement lets the failure reach its guard,
// the quiet one drops the line and counts it.
TEST_F(LogTest, Log_SinkThrows) {
    Tlog::SetSink([](const Tlog::Record&) { throw std::bad_alloc(); });
    const unsigned long dropped = Velmora::Wrapper::DroppedLogLines();
    EXPECT_THROW(VELMORA_LOG(site, 5) << "guarded", std::bad_alloc);
    EXPECT_NO_THROW(VELMORA_LOG_QUIET(site, 5) << "quiet");
    EXPECT_EQ(Velmora::Wrapper::DroppedLogLines(), dropped + 1);
    Tlog::SetSink([](const Tlog::Record&) {});
    VELMORA_LOG_QUIET(site, 2) << "sent";
    EXPECT_EQ(Velmora::Wrapper::DroppedLogLines(), dropped + 1);
}

}  // namespace
