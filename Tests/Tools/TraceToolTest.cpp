// A whole simulator session written as a trace: valid trace-event JSON with one complete event per
// browser call and per media-stack event, on the threads they ran on; and velmora-trace's summary of it
// and of files that are no such trace.

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <unistd.h>

#include "Json.h"
#include "Summary.h"

namespace {

using ::testing::HasSubstr;
using TraceSummary::JsonValue;

std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

// Lines of the simulator's timeline that hold `words`.
int Lines(const std::string& text, const std::string& words) {
    std::istringstream lines(text);
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(words) != std::string::npos ? 1 : 0;
    }
    return count;
}

// A number of the simulator's summary, such as "browser calls:   57".
int SummaryNumber(const std::string& text, const std::string& label) {
    const std::size_t at = text.rfind("\n  " + label);
    return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + 3 + label.size());
}

// The reference media stack's scenarios, one session each: the timeline's counts are per scenario.
const char* const kScenarios[] = {"mse", "url", "drm", "broadcast", "faults"};

// Files of this process only: ctest may run this program's cases side by side, each making its own session.
std::string TempPath(const std::string& name) {
    return ::testing::TempDir() + "velmora-" + std::to_string(getpid()) + "-" + name;
}
std::string TracePath(const std::string& scenario) { return TempPath(scenario + "-trace.json"); }
std::string TimelinePath(const std::string& scenario) { return TempPath(scenario + "-timeline.txt"); }

class TraceToolTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        for (const std::string scenario : kScenarios) {
            const std::string command = std::string(VELMORA_SIMULATOR_COMMAND) + " --scenario " + scenario +
                                        " --trace-json " + TracePath(scenario) + " > " + TimelinePath(scenario);
            ASSERT_EQ(std::system(command.c_str()), 0) << Read(TimelinePath(scenario));
        }
    }
    static void TearDownTestSuite() {
        for (const std::string scenario : kScenarios) {
            std::remove(TracePath(scenario).c_str());
            std::remove(TimelinePath(scenario).c_str());
        }
    }
};

TEST_F(TraceToolTest, Trace_Session) {
    int mediaStackThreads = 0;
    for (const std::string scenario : kScenarios) {
        SCOPED_TRACE(scenario);
        JsonValue trace;
        std::string error;
        ASSERT_TRUE(TraceSummary::ParseJson(Read(TracePath(scenario)), trace, error)) << error;
        const std::string timeline = Read(TimelinePath(scenario));

        int calls = 0;
        int events = 0;
        std::set<double> eventThreads;
        std::set<double> callThreads;
        std::map<double, std::string> threadNames;
        const double process = trace.Find("traceEvents")->items.at(0).Find("pid")->number;
        for (const JsonValue& event : trace.Find("traceEvents")->items) {
            const std::string phase = event.Find("ph")->text;
            const std::string category = phase == "M" ? "" : event.Find("cat")->text;
            const double thread = event.Find("tid")->number;
            if (phase == "M") {
                threadNames[thread] = event.Find("args")->Find("name")->text;
            } else if (category == "call") {
                ASSERT_EQ(phase, "X");
                ASSERT_GE(event.Find("dur")->number, 0);
                ++calls;
                callThreads.insert(thread);
            } else if (category != "failure" && event.Find("args")->Find("owner")->text != "AvComponentWrapper") {
                // Component state changes stay inside the library; the browser is not told of them.
                ASSERT_EQ(phase, "X");
                ++events;
                eventThreads.insert(thread);
            }
        }
        // The timeline lists the browser's calls, and its requests and identity queries as details.
        const int requests = Lines(timeline, "UVA_RequestBackend(") + Lines(timeline, "UVADRM_RequestBackend(");
        const int identities = Lines(timeline, "getId() = ");  // with getOIPFId() on the same line
        EXPECT_EQ(calls, SummaryNumber(timeline, "browser calls:") + requests + 2 * identities);
        EXPECT_EQ(events, SummaryNumber(timeline, "events:"));

        // The browser calls on the main thread, and from its handlers on whichever thread the media stack
        // raised the event.
        EXPECT_EQ(threadNames[process].substr(0, 8), "browser ");
        EXPECT_EQ(callThreads.count(process), 1u);
        for (double thread : callThreads) {
            EXPECT_TRUE(thread == process || eventThreads.count(thread) != 0) << thread;
        }
        for (const auto& name : threadNames) {
            mediaStackThreads += name.second.rfind("media stack (", 0) == 0 ? 1 : 0;
        }
    }
    // Some scenarios raise every event on the browser's thread; not all of them.
    EXPECT_GE(mediaStackThreads, 1);
}

// Traced from the environment, the library writes the session by itself when it stops: at least every
// call the simulator's own trace holds, which ends before the browser's last releases.
TEST_F(TraceToolTest, EnvironmentTrace_WrittenAtLibraryStop) {
    const std::string path = TempPath("environment-trace.json");
    const std::string command = "VELMORA_TRACE=" + path + " " + VELMORA_SIMULATOR_COMMAND + " --scenario url > " +
                                TempPath("environment-timeline.txt");
    ASSERT_EQ(std::system(command.c_str()), 0);
    const auto calls = [](const std::string& file) {
        JsonValue trace;
        std::string error;
        const JsonValue* events = nullptr;
        if (!TraceSummary::ParseJson(Read(file), trace, error) || (events = trace.Find("traceEvents")) == nullptr) {
            ADD_FAILURE() << file << ": " << error;
            return -1;
        }
        int count = 0;
        for (const JsonValue& event : events->items) {
            const JsonValue* category = event.Find("cat");
            count += category != nullptr && category->text == "call" ? 1 : 0;
        }
        return count;
    };
    EXPECT_GE(calls(path), calls(TracePath("url")));
    EXPECT_GT(calls(path), 0);
    std::remove(path.c_str());
    std::remove(TempPath("environment-timeline.txt").c_str());
}

TEST_F(TraceToolTest, Summary_Session) {
    std::ostringstream out;
    std::ostringstream err;
    ASSERT_EQ(TraceSummary::SummarizeFile(TracePath("mse"), out, err), 0) << err.str();
    EXPECT_THAT(out.str(), HasSubstr("p50        p99        max"));
    EXPECT_THAT(out.str(), ::testing::ContainsRegex("\n  writeData +[0-9]+ "));
    EXPECT_THAT(out.str(), HasSubstr("Slowest calls"));
    EXPECT_THAT(out.str(), ::testing::ContainsRegex("MediaBackendWrapper +[0-9]+ +[0-9.]+\n"));
}

TEST_F(TraceToolTest, Summary_NotATrace) {
    const std::string whole = Read(TracePath("mse"));
    struct Case {
        std::string contents;
        const char* message;
    };
    const std::string path = TempPath("bad-trace.json");
    for (const Case& c :
         {Case{whole.substr(0, whole.size() / 2), "unexpected end of file (truncated?)"},
          Case{"", "unexpected end of file"},
          Case{"{\"traceEvents\":[{\"name\":\"x\",\"ph\":\"X\",\"ts\":1,\"tid\":1,\"dur\":1}]}", "not a Velmora trace"},
          Case{"[1, 2, 3]", "no \"traceEvents\" array"},
          Case{"\x7f"
               "ELF\x01\x02",
               "not a JSON value at byte 0"},
          Case{std::string(100000, '['), "nested too deeply"}, Case{"{\"a\":\"\\u12\"}", "bad \\u escape"},
          Case{"{\"traceEvents\":[{\"ph\":\"X\"}],\"otherData\":{\"producer\":\"velmora\"}}",
               "without a numeric \"ts\""}}) {
        Write(path, c.contents);
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_NE(TraceSummary::SummarizeFile(path, out, err), 0) << c.message;
        EXPECT_THAT(err.str(), HasSubstr(c.message));
    }
    std::remove(path.c_str());
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_NE(TraceSummary::SummarizeFile(path + ".missing", out, err), 0);
    EXPECT_THAT(err.str(), HasSubstr("cannot open"));
}

}  // namespace
