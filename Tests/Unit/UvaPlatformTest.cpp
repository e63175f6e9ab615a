// The browser-side behaviour the library relies on: who frees what, and when a component goes.

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "Support/LiveObjects.h"
#include "Uva/UVAEvent.h"
#include "Uva/UVALiveObjects.h"

namespace {

using ::testing::ElementsAre;

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

void PrintTo(const ProtocolCase& protocol, std::ostream* out) { *out << protocol.name; }

class ComponentProtocolTest : public VelmoraTest::LiveObjectsTest,
                              public ::testing::WithParamInterface<ProtocolCase> {};

TEST_P(ComponentProtocolTest, ComponentGoesExactlyWhenUnusedAndNoEventNamesIt) {
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
        ProtocolCase{"unbalanced_stop_is_ignored", {Step::StopPreventing, Step::Prevent, Step::MarkUnused,
                                                    Step::StopPreventing},
                     3}),
    [](const ::testing::TestParamInfo<ProtocolCase>& info) { return std::string(info.param.name); });

class BrowserEventTest : public VelmoraTest::LiveObjectsTest {};

TEST_F(BrowserEventTest, ComponentChangedEventReleasesItsComponentWhenDestroyed) {
    auto* component = new TestComponent("fra");
    component->preventDestruction();
    auto* event = new ComponentChangedEvent;
    event->component = component;
    component->backendMarkUnused();
    EXPECT_EQ(component->language, std::string("fra")) << "an event still names it";
    delete event;
}

TEST_F(BrowserEventTest, NeedMseDataEventDeletesSamplesUpToTheFirstNullAndThenTheArray) {
    auto* event = new NeedMSEDataEvent;
    event->count = 3;
    event->samples = new UVABackend::MediaSample* [4] {};
    event->samples[0] = new UVABackend::MediaSample;
    event->samples[1] = new UVABackend::MediaSample;
    event->samples[0]->data.assign("abc", 3);
    event->samples[1]->addSubSample(1, 2);
    EXPECT_EQ(uvaLiveObjects().samples, 2);
    delete event;
}

TEST_F(BrowserEventTest, EventsFreeTheirTexts) {
    auto* rights = new DRMRightsErrorEvent;
    rights->contentId = strdup("c");
    rights->rightsIssuerUrl = strdup("u");
    delete rights;
    auto* rating = new ParentalRatingChangeEvent;
    rating->drmSystemId = strdup("d");
    EXPECT_EQ(rating->getType(), UVAEvent::PARENTAL_RATING_CHANGE);
    delete rating;
}

TEST_F(BrowserEventTest, SourceDescriptionsOwnTheirTexts) {
    delete UVABackend::SourceDescription::BackendStreaming("http://tv/stream");
    delete UVABackend::SourceDescription::Streaming(3, 77, true, 1, nullptr);
    delete UVABackend::SourceDescription::Streaming(0, 1, false, 0, "video/mp4");
}

static_assert(sizeof(UVABackend::TimeRange) == 16, "the browser's time range is two doubles");

}  // namespace
