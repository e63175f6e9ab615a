#pragma once
// A media wrapper over a mocked media back-end, with a recording browser client.

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <memory>
#include <vector>

#include "MediaBackendWrapper.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"

namespace VelmoraTest {

using Lines = std::vector<::testing::Matcher<Tlog::Record>>;
using Velmora::Wrapper::MediaBackendWrapper;

class MediaWrapperTest : public LiveObjectsTest {
protected:
    MediaBackendWrapper& Wrapper() {
        if (wrapper == nullptr) {
            wrapper = std::make_unique<MediaBackendWrapper>(backend, UVABackend::TYPE_MEDIA_SOURCE, &client);
        }
        return *wrapper;
    }
    void Raise(Velmora::BackendEvent* event) {
        Wrapper();
        media->Raise(event);
    }
    std::vector<Tlog::Record> MediaLog() const { return log.Records("Velmora::M"); }

    boost::shared_ptr<::testing::NiceMock<MockMediaBackend>> media =
        boost::make_shared<::testing::NiceMock<MockMediaBackend>>();
    boost::shared_ptr<Velmora::IBackend> backend = media;
    RecordingClient client;
    std::unique_ptr<MediaBackendWrapper> wrapper;
};

}  // namespace VelmoraTest
