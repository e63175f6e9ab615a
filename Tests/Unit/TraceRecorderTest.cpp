// The session trace as the owner switches it: what a guarded call, a caught failure and a slot leave in
// the written file, the watchdog's once-per-operation-and-back-end line, and refused settings.

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <unistd.h>

#include "CallGuard.h"
#include "Json.h"
#include "SlotGate.h"
#include "Support/LogCapture.h"
#include "TraceSettings.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/Exceptions.h"
#include "Velmora/Trace.h"

namespace {

using ::testing::HasSubstr;
using TraceSummary::JsonValue;
using namespace Velmora;
using namespace Velmora::Wrapper;

const LogSite kSite(LogFileName{"Velmora::TraceTest", "Tests/Unit/TraceRecorderTest"}, __LINE__);
const CallPolicy kPolicy{&kSite, "op", "virtual function from IMediaBackend failed: "};

struct Listener {
    int heard = 0;
    void Hear(boost::shared_ptr<BackendEvent> /*event*/) { ++heard; }
};

class TraceRecorderTest : public ::testing::Test {
protected:
    ~TraceRecorderTest() override {
        Trace::StopTrace();
        Trace::SetSlowCallThreshold(0);
        std::remove(path.c_str());
    }

    // The events the library wrote, by name (the last of each name wins).
    std::map<std::string, JsonValue> Written() {
        std::string error;
        EXPECT_TRUE(Trace::WriteTrace(path, &error)) << error;
        std::ifstream file(path);
        std::stringstream text;
        text << file.rdbuf();
        if (!TraceSummary::ParseJson(text.str(), written, error)) {
            ADD_FAILURE() << "the trace is not JSON: " << error;
            return {};
        }
        std::map<std::string, JsonValue> byName;
        if (const JsonValue* events = written.Find("traceEvents")) {
            for (const JsonValue& event : events->items) {
                byName[event.Find("name")->text] = event;
            }
        }
        return byName;
    }

    static double Arg(const JsonValue& event, const char* name) { return event.Find("args")->Find(name)->number; }

    // One file per process: ctest may run this program's cases side by side.
    std::string path = ::testing::TempDir() + "velmora-trace-test-" + std::to_string(getpid()) + ".json";
    JsonValue written;  // the whole file Written() read last
    VelmoraTest::LogCapture log;
    int backend = 0;
};

TEST_F(TraceRecorderTest, WriteTrace_CallsFailuresAndSlots) {
    ASSERT_TRUE(Trace::StartTrace("", 64));
    Guarded(
        kPolicy, [] { return UVA_STATUS_OK; }, &backend, "fine");
    Guarded(
        kPolicy, []() -> UVA_STATUS { throw GenericErrorException("b\"o\\o\nm"); }, &backend, "broken");
    Listener listener;
    SlotGate gate;
    gate.Bind<&Listener::Hear> (&listener)(boost::make_shared<BackendEvent>(BackendEvent::SeekCompleted));

    std::map<std::string, JsonValue> events = Written();
    ASSERT_EQ(events.count("fine"), 1u);
    EXPECT_EQ(events["fine"].Find("ph")->text, "X");
    EXPECT_EQ(Arg(events["fine"], "status"), UVA_STATUS_OK);
    char backendText[32];
    std::snprintf(backendText, sizeof backendText, "%p", static_cast<void*>(&backend));
    EXPECT_EQ(events["fine"].Find("args")->Find("backend")->text, backendText);
    EXPECT_EQ(Arg(events["broken"], "status"), UVA_STATUS_ERROR);
    EXPECT_EQ(events["failure"].Find("args")->Find("operation")->text, "broken");
    EXPECT_EQ(events["failure"].Find("args")->Find("text")->text, "b\"o\\o\nm");
    EXPECT_EQ(Arg(events["failure"], "errorType"), 1);
    ASSERT_EQ(events.count("SeekCompleted"), 1u);
    EXPECT_EQ(listener.heard, 1);
    EXPECT_EQ(Arg(events["SeekCompleted"], "code"), BackendEvent::SeekCompleted);
    EXPECT_EQ(events["SeekCompleted"].Find("args")->Find("owner")->text, "Listener");
    EXPECT_EQ(events["fine"].Find("tid")->number, events["SeekCompleted"].Find("tid")->number);
    EXPECT_EQ(written.Find("otherData")->Find("ring")->number, 64);

    Quietly(kSite, "quiet", [] { throw 1; });
    const JsonValue teardown = Written()["failure"];
    ASSERT_NE(teardown.Find("args"), nullptr);
    EXPECT_EQ(teardown.Find("args")->Find("operation")->text, "teardown");
    EXPECT_EQ(Arg(teardown, "errorType"), -1);
    EXPECT_EQ(teardown.Find("args")->Find("text")->text, "quiet");
}

TEST_F(TraceRecorderTest, SlowCall_OncePerOperationAndBackEnd) {
    ASSERT_TRUE(Trace::SetSlowCallThreshold(1));
    int otherBackend = 0;
    for (const void* on : {static_cast<const void*>(&backend), static_cast<const void*>(&backend),
                           static_cast<const void*>(&otherBackend)}) {
        Guarded(
            kPolicy,
            [] {
                std::this_thread::sleep_for(std::chrono::milliseconds(3));
                return UVA_STATUS_OK;
            },
            on, "sluggish");
    }
    const auto lines = log.Records("Velmora::TraceTest");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, 4);
    EXPECT_THAT(lines[0].text, HasSubstr("sluggish kept the browser's thread for "));
    EXPECT_THAT(lines[0].text, HasSubstr("limit 1 ms"));

    ASSERT_TRUE(Trace::SetSlowCallThreshold(0));
    EXPECT_FALSE(Tracing::Armed()) << "the switched-off path must be the single flag test again";
}

TEST_F(TraceRecorderTest, StartTrace_BadSettings) {
    struct Case {
        std::size_t ring;
        std::string path;
        const char* message;
    };
    for (const Case& c : {Case{0, "", "the ring must hold 1 to 16777216 entries, not 0"},
                          Case{Trace::kMaxRingEntries + 1, "", "not 16777217"},
                          Case{16, "/nonexistent/dir/t.json", "cannot open /nonexistent/dir/t.json"}}) {
        std::string error;
        EXPECT_FALSE(Trace::StartTrace(c.path, c.ring, &error));
        EXPECT_THAT(error, HasSubstr(c.message));
        EXPECT_THAT(log.Records().back().text, HasSubstr(c.message));
        EXPECT_FALSE(Tracing::Armed());
    }
    std::string error;
    ASSERT_TRUE(Trace::StartTrace("", 16));
    EXPECT_FALSE(Trace::WriteTrace("/nonexistent/dir/t.json", &error));
    EXPECT_THAT(error, HasSubstr("trace not written: cannot open"));
    EXPECT_FALSE(Trace::SetSlowCallThreshold(3600001, &error));
}

TEST(TraceSettingsTest, ParseTraceSettings_Variable) {
    struct Case {
        const char* text;
        const char* problem;  // empty: accepted
        std::size_t ring;
        unsigned slow;
    };
    for (const Case& c :
         {Case{"t.json", "", Trace::kDefaultRingEntries, 0}, Case{"t.json,ring=10,slow=5", "", 10, 5},
          Case{"t.json,ring=99999999999", "", Trace::kMaxRingEntries + 1, 0}, Case{",ring=10", "no path", 0, 0},
          Case{"t.json,ring=ten", "not \"ring=ten\"", 0, 0}, Case{"t.json,depth=3", "unknown setting \"depth\"", 0, 0},
          Case{"t.json,slow=0", "1 to 3600000 milliseconds", 0, 0}}) {
        Tracing::TraceSettings settings;
        const std::string problem = Tracing::ParseTraceSettings(c.text, settings);
        if (*c.problem == '\0') {
            EXPECT_EQ(problem, "") << c.text;
            EXPECT_EQ(settings.ringEntries, c.ring) << c.text;
            EXPECT_EQ(settings.slowCallMilliseconds, c.slow) << c.text;
        } else {
            EXPECT_THAT(problem, HasSubstr(c.problem)) << c.text;
            EXPECT_THAT(problem, HasSubstr("VELMORA_TRACE=")) << c.text;
        }
    }
}

}  // namespace
