// The browser-side behaviour the library relies on: when a component goes. (Who frees which text and
// sample is caught by the whole-session tests, whose every allocation must come back.)

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "Support/LiveObjects.h"
#include "Uva/UVAEvent.h"
#include "Uva/UVALiveObjects.h"

namespace {

struct TestComponent : UVABackend::AVComponent {
    explicit TestComponent(const char* language)
        : AVComponent([&] {
              UVABackend::AVComponentDescription description{};
              description.language = strdup(language);
              return description;
          }()) {}
};

long LiveComponents() { return uvaLiveObjects().components; }

enum class Step { Prevent, StopPreventing, MarkUnused };

struct ProtocolCase {
    const char* name;
    std::vector<Step> steps;
    std::size_t deletedAfterStep;  // index of the step after which the component is gone
};

class ComponentProtocolTest : public VelmoraTest::LiveObjectsTest,
                              public ::testing::WithParamInterface<ProtocolCase> {};

TEST_P(ComponentProtocolTest, Destroy_WhenUnused) {
    const long before = LiveComponents();
    auto* component = new TestComponent("deu");
    const auto& steps = GetParam().steps;
    for (std::size_t index = 0; index < steps.size(); ++index) {
        switch (steps[index]) {
            case Step::Prevent: component->preventDestruction(); break;
            case Step::StopPreventing: component->stopPreventingDestruction(); break;
            case Step::MarkUnused: component->backendMarkUnused(); break;
        }
        EXPECT_EQ(LiveComponents() - before, index < GetParam().deletedAfterStep ? 1 : 0) << "after step " << index;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, ComponentProtocolTest,
    ::testing::Values(
        ProtocolCase{"unused_without_events", {Step::MarkUnused}, 0},
        ProtocolCase{"event_outlives_marking", {Step::Prevent, Step::MarkUnused, Step::StopPreventing}, 2},
        ProtocolCase{"event_ends_before_marking", {Step::Prevent, Step::StopPreventing, Step::MarkUnused}, 2},
        ProtocolCase{"two_events_in_flight",
                     {Step::Prevent, Step::Prevent, Step::MarkUnused, Step::StopPreventing, Step::StopPreventing},
                     4},
        ProtocolCase{"unbalanced_stop_is_ignored",
                     {Step::StopPreventing, Step::Prevent, Step::MarkUnused, Step::StopPreventing},
                     3}),
    [](const ::testing::TestParamInfo<ProtocolCase>& info) { return std::string(info.param.name); });

static_assert(sizeof(UVABackend::TimeRange) == 16, "the browser's time range is two doubles");

}  // namespace
