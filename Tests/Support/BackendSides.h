#pragma once
// The media and the broadcast back-end wrapper side by side, each over its mocked media stack back-end, so
// that a rule both wrappers share is one table run on both.

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <memory>
#include <string>

#include "MediaBackendWrapper.h"
#include "Support/MediaStackMocks.h"
#include "VideoBroadcastBackendWrapper.h"

namespace VelmoraTest {

// What the wrapper is made over: its own mock, the other kind's mock, or nothing.
enum class Over { Own, Foreign, Nothing };

// A back-end wrapper over its mocked back-end, as far as the shared rules go.
class Side {
public:
    virtual ~Side() = default;
    virtual void Raise(Velmora::BackendEvent* event) = 0;
    virtual UVA_STATUS Select(bool select, UVABackend::AVComponent* component) = 0;
    virtual void ExpectSelection(bool select, Velmora::IAvComponent* chosen) = 0;
};

template <typename Mock, typename Foreign, typename Wrapper>
class SideOver : public Side {
public:
    template <typename... Extra>
    SideOver(UVAClient* client, Over over, Extra... extra) : wrapper(Backend(over), extra..., client) {}
    void Raise(Velmora::BackendEvent* event) override { stack->Raise(event); }
    UVA_STATUS Select(bool select, UVABackend::AVComponent* component) override {
        return select ? wrapper.selectComponent(component) : wrapper.unselectComponent(component);
    }
    void ExpectSelection(bool select, Velmora::IAvComponent* chosen) override {
        select ? void(EXPECT_CALL(*stack, SelectComponent(chosen)))
               : void(EXPECT_CALL(*stack, UnselectComponent(chosen)));
    }

    boost::shared_ptr<testing::NiceMock<Mock>> stack = boost::make_shared<testing::NiceMock<Mock>>();
    Wrapper wrapper;

private:
    boost::shared_ptr<Velmora::IBackend> Backend(Over over) const {
        if (over == Over::Foreign) {
            return boost::make_shared<testing::NiceMock<Foreign>>();
        }
        return over == Over::Own ? stack : nullptr;
    }
};

using MediaSide = SideOver<MockMediaBackend, MockVideoBroadcastBackend, Velmora::Wrapper::MediaBackendWrapper>;
using BroadcastSide =
    SideOver<MockVideoBroadcastBackend, MockMediaBackend, Velmora::Wrapper::VideoBroadcastBackendWrapper>;

// How a wrapper kind writes the lines of the shared rules.
struct Kind {
    const char* name;
    std::unique_ptr<Side> (*make)(UVAClient*, Over);
    const char* context;     // of the wrapper's log lines
    std::string slot;        // the event slot, as its lines name it
    bool reportsUnknown;     // a change or removal of an unknown component is logged at level 4
    bool tracesAdded;        // a new component's address is logged at level 2
    bool tracesSelected;     // a selected component's address is logged at level 2
    std::string castFailed;  // the type-1 text when the back-end is not of the wrapper's kind
    std::string callFailed;  // a standard exception's text, after the operation's name for media
    bool namesOperation;     // the standard exception's line starts with the operation's name
    bool tracesSending;      // each event is traced at level 2 before it is handled
    int notHandledLevel;     // of the line for an event the browser is not told of
};

// clang-format off
inline const Kind kMedia{"media",
    [](UVAClient* client, Over over) -> std::unique_ptr<Side> {
        return std::make_unique<MediaSide>(client, over, UVABackend::TYPE_MEDIA_SOURCE);
    },
    "Velmora::M", "MediaBackendEvent", true, true, false, "Exception occurred while performing IMediaBackend cast.",
    "virtual function from IMediaBackend failed: ", true, true, 4};
inline const Kind kBroadcast{"broadcast",
    [](UVAClient* client, Over over) -> std::unique_ptr<Side> { return std::make_unique<BroadcastSide>(client, over); },
    "Velmora::VB", "VideoBroadcastBackendEvent", false, false, true,
    "Exception occurred while performing IVideoBroadcastBackend cast.",
    "virtual function from IVideoBroadcastBackend failed: ", false, false, 5};
// clang-format on

}  // namespace VelmoraTest
