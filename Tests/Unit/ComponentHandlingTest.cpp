// Component handling, one set of rules for the media and the broadcast back-end: each case runs on both.

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <functional>
#include <memory>
#include <string>

#include "MediaBackendWrapper.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"
#include "VideoBroadcastBackendWrapper.h"

namespace {

using namespace ::testing;
using Action = Velmora::ComponentChangedEvent::Action;
using Component = UVABackend::AVComponent;
using Lines = std::vector<Matcher<Tlog::Record>>;
using VelmoraTest::LogLine;

// A back-end wrapper over its mocked media stack back-end, as far as components go.
class Side {
public:
    virtual ~Side() = default;
    virtual void Raise(Velmora::BackendEvent* event) = 0;
    virtual UVA_STATUS Select(bool select, Component* component) = 0;
    virtual void ExpectSelection(bool select, Velmora::IAvComponent* chosen) = 0;
};

template <typename Mock, typename Wrapper>
class SideOver : public Side {
public:
    template <typename... Extra>
    explicit SideOver(UVAClient* client, Extra... extra) : wrapper_(backend_, extra..., client) {}
    void Raise(Velmora::BackendEvent* event) override { backend_->Raise(event); }
    UVA_STATUS Select(bool select, Component* component) override {
        return select ? wrapper_.selectComponent(component) : wrapper_.unselectComponent(component);
    }
    void ExpectSelection(bool select, Velmora::IAvComponent* chosen) override {
        select ? void(EXPECT_CALL(*backend_, SelectComponent(chosen)))
               : void(EXPECT_CALL(*backend_, UnselectComponent(chosen)));
    }

private:
    boost::shared_ptr<NiceMock<Mock>> backend_ = boost::make_shared<NiceMock<Mock>>();
    Wrapper wrapper_;
};

using Media = SideOver<VelmoraTest::MockMediaBackend, Velmora::Wrapper::MediaBackendWrapper>;
using Broadcast = SideOver<VelmoraTest::MockVideoBroadcastBackend, Velmora::Wrapper::VideoBroadcastBackendWrapper>;

struct Kind {
    const char* name;
    std::unique_ptr<Side> (*make)(UVAClient*);
    const char* context;  // of the wrapper's log lines
    std::string slot;     // the event slot, as its lines name it
    bool reportsUnknown;  // a change or removal of an unknown component is logged at level 4
    bool tracesAdded;     // a new component's address is logged at level 2
    bool tracesSelected;  // a selected component's address is logged at level 2
};

const Kind kKinds[] = {
    {"media",
     [](UVAClient* client) -> std::unique_ptr<Side> {
         return std::make_unique<Media>(client, UVABackend::TYPE_MEDIA_SOURCE);
     },
     "Velmora::M", "MediaBackendEvent", true, true, false},
    {"broadcast", [](UVAClient* client) -> std::unique_ptr<Side> { return std::make_unique<Broadcast>(client); },
     "Velmora::VB", "VideoBroadcastBackendEvent", false, false, true},
};

class ComponentFixture : public VelmoraTest::LiveObjectsTest {
protected:
    explicit ComponentFixture(const Kind& kind) : kind(kind), side(kind.make(&client)) {}

    // Raises a component event; the component that the browser's event names, if any.
    Component* Announce(Action action) {
        const std::size_t before = client.events.Count();
        side->Raise(new Velmora::ComponentChangedEvent(&audio, action));
        const auto* changed = client.events.At<::ComponentChangedEvent>(before);
        EXPECT_TRUE(changed == nullptr || changed->action == static_cast<std::int32_t>(action));
        return changed == nullptr ? nullptr : changed->component;
    }
    std::vector<Tlog::Record> WrapperLog() const { return log.Records(kind.context); }

    const Kind& kind;
    NiceMock<VelmoraTest::MockAvComponent> audio{"deu"};
    VelmoraTest::RecordingClient client;
    std::unique_ptr<Side> side;
};

class ComponentTest : public ComponentFixture, public WithParamInterface<Kind> {
protected:
    ComponentTest() : ComponentFixture(GetParam()) {}
};

TEST_P(ComponentTest, Removal_TellsTheBrowserBeforeTheComponentIsMarkedUnused) {
    Component* const shown = Announce(Action::Added);
    audio.SetActive(true);
    std::int32_t stateWhenTold = -1;
    client.onEvent = [&](UVAEvent*) { stateWhenTold = shown->state; };
    EXPECT_EQ(Announce(Action::Removed), shown);
    EXPECT_EQ(stateWhenTold, 1);
    EXPECT_EQ(shown->state, 0);
}

TEST_P(ComponentTest, AnnouncedTwice_LowerAddressFirst) {
    const long components = uvaLiveObjects().components;
    Component* const first = Announce(Action::Added);
    Component* const second = Announce(Action::Added);
    EXPECT_STREQ(first->language, "deu");
    EXPECT_EQ(first->encoding, nullptr) << "a null text stays null";
    Component* const lower = std::min(first, second, std::less<>());
    Component* const upper = lower == first ? second : first;
    EXPECT_EQ(Announce(Action::Changed), lower);
    EXPECT_EQ(Announce(Action::Removed), lower);
    EXPECT_EQ(Announce(Action::Removed), upper);
    EXPECT_THAT(WrapperLog(), IsSupersetOf({LogLine(2, "Component to be REMOVED: " + PrintToString(lower)),
                                            LogLine(2, "Component to be REMOVED: " + PrintToString(upper))}));
    EXPECT_THAT(WrapperLog(), Contains(LogLine(2, "Component ADDED: " + PrintToString(first))).Times(kind.tracesAdded));
    EXPECT_EQ(uvaLiveObjects().components - components, 2) << "still named by the browser's events";
}

TEST_P(ComponentTest, Raise_UnknownOrMalformed) {
    side->Raise(new Velmora::ComponentChangedEvent(&audio, Action::Removed));
    side->Raise(new Velmora::ComponentChangedEvent(&audio, Action::Changed));
    side->Raise(new Velmora::ComponentChangedEvent(nullptr, Action::Added));
    side->Raise(nullptr);
    EXPECT_THROW(side->Raise(new Velmora::ComponentChangedEvent(&audio, 3)), Velmora::GenericErrorException);
    EXPECT_THROW(side->Raise(new Velmora::BackendEvent(Velmora::BackendEvent::ComponentChanged)), std::exception);
    EXPECT_EQ(client.events.Count(), 0u);
    EXPECT_THAT(WrapperLog(), IsSupersetOf({LogLine(5, kind.slot + ": component event without a component ignored"),
                                            LogLine(5, kind.slot + ": null event ignored")}));
    const std::string unknown = kind.slot + " not handled. Event ID: ComponentChanged";
    EXPECT_THAT(WrapperLog(), Contains(LogLine(4, unknown)).Times(kind.reportsUnknown ? 2 : 0));
}

INSTANTIATE_TEST_SUITE_P(BothBackEnds, ComponentTest, ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

enum class Target { Null, Removed, Inactive, Active };

struct Selection {
    const char* name;
    Target target;
    bool select;
    UVA_STATUS status;
    std::string line;  // the one line at level 5, empty for none
};

class SelectionTest : public ComponentFixture, public WithParamInterface<std::tuple<Kind, Selection>> {
protected:
    SelectionTest() : ComponentFixture(std::get<0>(GetParam())) {}
};

TEST_P(SelectionTest, SelectOrUnselect_BrowsersComponent) {
    const Selection& row = std::get<1>(GetParam());
    Component* const target = row.target == Target::Null ? nullptr : Announce(Action::Added);
    audio.SetActive(row.target != Target::Inactive);
    if (row.target == Target::Removed) {
        Announce(Action::Removed);
    } else if (row.target == Target::Active) {
        side->ExpectSelection(row.select, &audio);
    }
    log.Clear();
    EXPECT_EQ(side->Select(row.select, target), row.status);
    Lines expected;
    if (!row.line.empty()) {
        expected.push_back(LogLine(5, row.line));
    } else if (row.status == UVA_STATUS_OK && row.select && kind.tracesSelected) {
        expected.push_back(LogLine(2, "Select component: " + PrintToString(&audio)));
    }
    EXPECT_THAT(WrapperLog(), ElementsAreArray(expected));
    if (row.target >= Target::Inactive) {
        Announce(Action::Removed);
    }
}

const Selection kSelections[] = {
    {"select_null", Target::Null, true, UVA_STATUS_ERROR,
     "selectComponent Uva attempts to select nullpointer AVComponent id."},
    {"unselect_null", Target::Null, false, UVA_STATUS_ERROR,
     "unselectComponent Uva attempts to select nullpointer AVComponent id."},
    {"select_removed", Target::Removed, true, UVA_STATUS_ERROR,
     "selectComponent Uva attempts to select non-existing AVComponent id."},
    {"unselect_removed", Target::Removed, false, UVA_STATUS_ERROR,
     "unselectComponent Uva attempts to select invalid AVComponent id."},
    {"select_inactive", Target::Inactive, true, UVA_STATUS_ERROR, ""},
    {"select", Target::Active, true, UVA_STATUS_OK, ""},
    {"unselect", Target::Active, false, UVA_STATUS_OK, ""},
};

INSTANTIATE_TEST_SUITE_P(BothBackEnds, SelectionTest, Combine(ValuesIn(kKinds), ValuesIn(kSelections)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

}  // namespace
