#include <gmock/gmock.h>

#include "Recorders.h"
#include "ReferenceDrmBackend.h"
#include "ReferenceMediaBackend.h"
#include "Velmora/Exceptions.h"

namespace {

using ::testing::Each;
using ::testing::IsEmpty;
using Velmora::DecoderBuffer;
using Velmora::IBackend;
using Velmora::Reference::ReferenceComponent;
using Velmora::Reference::ReferenceDrmBackend;
using Velmora::Reference::ReferenceMediaBackend;
using namespace ReferenceTest;

using Source = IBackend::SourceDescriptionOperaStreaming;
const Source kVideo{UVABackend::SourceDescription::SOURCE_VIDEO, 1, false, 0, "video/mp4"};
const Source kAudio{UVABackend::SourceDescription::SOURCE_AUDIO, 2, false, 0, "audio/mp4"};

class MediaBackendTest : public ::testing::Test {
protected:
    // A back-end of `type` initialised with `sources` (with a URL when there are none), nothing raised yet.
    void Load(int type, const std::vector<Source>& sources, bool play = true) {
        backend = ReferenceMediaBackend::Create(type, options, faults);
        events.reset(new EventRecorder(*backend));
        if (sources.empty()) {
            backend->InitBackend("http://example.test/movie.mp4", IBackend::SourceDescriptionBackendStreaming{}, false);
        } else {
            backend->InitBackend("blob:mse", sources, false);
        }
        if (play) {
            backend->Play();
        }
    }

    void Steps(int count) { ReferenceTest::Steps(*backend, count); }

    void Write(std::int32_t sourceId, std::vector<DecoderBuffer> samples,
               UVABackend::WriteDataStatus status = UVABackend::WRITE_DATA_OK) {
        backend->WriteMseData(Answer(sourceId, std::move(samples)), status);
    }

    ReferenceMediaBackend::Counters Counters() const { return backend->GetStatus().counters; }

    Velmora::Reference::StackOptions options = ManualOptions();
    std::shared_ptr<FaultInjector> faults = std::make_shared<FaultInjector>();
    boost::shared_ptr<ReferenceMediaBackend> backend;
    std::unique_ptr<EventRecorder> events;
};

TEST_F(MediaBackendTest, AnnouncesTheContentAndAsksEachSourceForDataOnTheFirstStepOnly) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {kVideo, kAudio}, false);
    EXPECT_THAT(events->Types(), IsEmpty()) << "nothing is raised inside a browser call";

    backend->Step();
    EXPECT_THAT(events->Types(),
                ElementsAre(BackendEvent::DurationChanged, BackendEvent::VideoResized, BackendEvent::ComponentChanged,
                            BackendEvent::ComponentChanged, BackendEvent::ComponentChanged,
                            BackendEvent::ComponentChanged, BackendEvent::NeedMseData, BackendEvent::NeedMseData));
    const auto requests = events->Of<Velmora::NeedMseDataEvent>();
    EXPECT_EQ(requests[0]->sourceId, 1);
    EXPECT_EQ(requests[1]->sourceId, 2);
    EXPECT_EQ(requests[1]->count, options.media.samplesPerRequest);

    events->Clear();
    backend->Step();
    EXPECT_THAT(events->Types(), IsEmpty()) << "no second request before the first is answered";
}

TEST_F(MediaBackendTest, PlaysWhatWasWrittenWaitsForMoreAndFinishesAtTheEndOfTheStreams) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {kVideo, kAudio}, false);
    backend->Step();
    Write(1, {Sample(0), Sample(500)});
    Write(2, {Sample(0), Sample(500)});
    backend->Play();
    events->Clear();

    Steps(11);
    EXPECT_EQ(backend->GetStatus().positionSeconds, 1.0);
    EXPECT_THAT(events->Types(), ElementsAre(BackendEvent::NeedMseData, BackendEvent::NeedMseData,
                                             BackendEvent::BufferingStreamUnderrun));
    EXPECT_TRUE(backend->GetStatus().waitingForData);

    Write(1, {Sample(1000), Sample(1500)}, UVABackend::WRITE_DATA_END_OF_STREAM);
    Write(2, {Sample(1000), Sample(1500)}, UVABackend::WRITE_DATA_END_OF_STREAM);
    events->Clear();
    Steps(11);
    EXPECT_THAT(events->Types(), ElementsAre(BackendEvent::BufferingStreamBuffered, BackendEvent::PlaybackFinished));
    const auto status = backend->GetStatus();
    EXPECT_EQ(status.positionSeconds, 2.0);
    EXPECT_TRUE(status.finished);
    EXPECT_EQ(status.counters.samplesPlayed, 8u);
    EXPECT_EQ(status.counters.bytesWritten, 80u);
}

TEST_F(MediaBackendTest, ASeekCancelsOpenRequestsAndIsConfirmedOnTheNextStep) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {kVideo, kAudio}, false);
    EXPECT_FALSE(backend->SetPosition(1.0)) << "nothing to seek in before the content is announced";
    backend->Step();
    events->Clear();

    for (const double outside : {-0.5, 2.5}) {
        EXPECT_FALSE(backend->SetPosition(outside)) << outside;
    }
    EXPECT_TRUE(backend->SetPosition(1.5));
    backend->Step();
    EXPECT_THAT(events->Types(), ElementsAre(BackendEvent::CancelDataRequests, BackendEvent::CancelDataRequests,
                                             BackendEvent::SeekCompleted, BackendEvent::NeedMseData,
                                             BackendEvent::NeedMseData));
    EXPECT_EQ(events->Of<Velmora::CancelDataRequestsEvent>()[0]->position, 1.5);
    EXPECT_EQ(backend->GetStatus().positionSeconds, 1.5);
}

TEST_F(MediaBackendTest, AStreamItFetchesItselfDownloadsAheadOfPlayback) {
    Load(UVABackend::TYPE_MEDIA, {});
    Steps(5);
    std::vector<IBackend::ByteRange> bytes;
    std::vector<IBackend::TimeRange> buffered;
    ASSERT_TRUE(backend->GetBufferedTimeRanges(bytes, buffered));
    ASSERT_EQ(buffered.size(), 1u);
    EXPECT_EQ(buffered[0].end, 1000u) << "twice as fast as it plays";
    EXPECT_EQ(backend->GetStatus().positionSeconds, 0.5);

    Steps(15);
    EXPECT_THAT(events->Types(),
                ElementsAre(BackendEvent::DurationChanged, BackendEvent::VideoResized, BackendEvent::ComponentChanged,
                            BackendEvent::ComponentChanged, BackendEvent::ComponentChanged,
                            BackendEvent::ComponentChanged, BackendEvent::BufferingProgress,
                            BackendEvent::BufferingStreamBuffered, BackendEvent::BufferingIdle,
                            BackendEvent::PlaybackFinished));
}

// ---- The samples of WriteMseData -------------------------------------------------------------------

struct SampleCase {
    const char* name;
    std::function<void(DecoderBuffer&)> change;
    const char* problem;  // null: the sample is sound
};

class SampleValidation : public MediaBackendTest, public ::testing::WithParamInterface<SampleCase> {};

TEST_P(SampleValidation, CountsEverySampleAsValidOrInvalid) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {kVideo});
    DecoderBuffer sample = EncryptedSample(0);
    GetParam().change(sample);
    Write(1, {sample});
    const auto counters = Counters();
    const bool sound = GetParam().problem == nullptr;
    EXPECT_EQ(counters.samplesValid, sound ? 1u : 0u);
    EXPECT_EQ(counters.samplesInvalid, sound ? 0u : 1u);
    EXPECT_EQ(counters.lastProblem, sound ? "" : GetParam().problem);
    EXPECT_EQ(counters.writesRejected, 0u) << "one bad sample does not refuse the whole answer";
}

using Sub = Velmora::SubSampleEncryptionInfo;

void MakeClear(DecoderBuffer& s) {
    Put(s.keyId, s.keyIdSize, "");
    Put(s.iv, s.ivSize, "");
}

INSTANTIATE_TEST_SUITE_P(
    Samples, SampleValidation,
    ::testing::Values(
        SampleCase{"EncryptedWhole", [](DecoderBuffer&) {}, nullptr},
        SampleCase{"Clear", MakeClear, nullptr},
        SampleCase{"ShortIv", [](DecoderBuffer& s) { Put(s.iv, s.ivSize, "iv8bytes"); }, nullptr},
        SampleCase{"SubSamplesCoveringTheData", [](DecoderBuffer& s) { s.subSamples = {Sub{4, 0}, Sub{1, 5}}; }, nullptr},
        SampleCase{"SubSamplesShortOfTheData", [](DecoderBuffer& s) { s.subSamples = {Sub{2, 7}}; },
                   "sub-samples that do not cover the sample"},
        // 0xffffffff + 11 wraps to 10, the data size, in 32-bit arithmetic.
        SampleCase{"SubSamplesWrappingAround", [](DecoderBuffer& s) { s.subSamples = {Sub{0xffffffffu, 11}}; },
                   "sub-samples that do not cover the sample"},
        SampleCase{"ClearWithSubSamples", [](DecoderBuffer& s) { MakeClear(s); s.subSamples = {Sub{10, 0}}; },
                   "a clear sample with encryption data"},
        SampleCase{"ClearWithIv", [](DecoderBuffer& s) { Put(s.keyId, s.keyIdSize, ""); },
                   "a clear sample with encryption data"},
        SampleCase{"KeyIdOf8Bytes", [](DecoderBuffer& s) { Put(s.keyId, s.keyIdSize, "8 bytes!"); },
                   "a key id that is not 16 bytes"},
        SampleCase{"IvOf12Bytes", [](DecoderBuffer& s) { Put(s.iv, s.ivSize, "twelve bytes"); },
                   "an initialisation vector that is not 8 or 16 bytes"},
        SampleCase{"NoData", [](DecoderBuffer& s) { Put(s.data, s.dataSize, ""); }, "a sample without data"},
        SampleCase{"LengthWithoutBuffer", [](DecoderBuffer& s) { s.codecConfigSize = 4; },
                   "a buffer and its length disagree"},
        SampleCase{"NegativeTimestamp", [](DecoderBuffer& s) { s.timestamp = -1; }, "a sample without a valid time"},
        SampleCase{"NoDuration", [](DecoderBuffer& s) { s.duration = 0; }, "a sample without a valid time"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(MediaBackendTest, RefusesAnAnswerThatDoesNotFitAsAWholeByThrowing) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {kVideo});
    auto overfull = Answer(1, {Sample(0), Sample(500)});
    static_cast<Velmora::WriteMseDataEvent&>(*overfull).count = 1;
    const boost::shared_ptr<BackendEvent> answers[] = {
        boost::make_shared<Velmora::NeedMseDataEvent>(1, 4),  // the request, not an answer
        Answer(9, {Sample(0)}),                               // a source nobody attached
        overfull,
    };
    for (const auto& answer : answers) {
        EXPECT_THROW(backend->WriteMseData(answer, UVABackend::WRITE_DATA_OK), ExceptionBase);
    }
    EXPECT_EQ(Counters().writesRejected, 3u);
    EXPECT_EQ(Counters().samplesValid, 0u);

    auto withEmptyEntries = Answer(1, {Sample(0)});
    static_cast<Velmora::WriteMseDataEvent&>(*withEmptyEntries).count = 4;  // the browser filled one of four
    backend->WriteMseData(withEmptyEntries, UVABackend::WRITE_DATA_OK);
    EXPECT_EQ(Counters().samplesValid, 1u);
}

TEST_F(MediaBackendTest, AcceptsOnlyTheAnswerToTheOpenByteRequest) {
    Load(UVABackend::TYPE_MEDIA, {kVideo});
    backend->Step();
    const auto request = events->Of<Velmora::NeedDataEvent>().at(0);
    EXPECT_EQ(request->first, 1);
    const std::int32_t id = request->second, size = request->fourth;
    const auto write = [this, size](std::int32_t source, std::int32_t requestId, std::int32_t bytes) {
        backend->WriteData(boost::make_shared<Velmora::NeedDataEvent>(source, requestId, 0, size), bytes,
                           UVABackend::WRITE_DATA_OK);
    };
    // More bytes than asked for, another request, another source.
    EXPECT_THROW(write(1, id, size + 1), ExceptionBase);
    EXPECT_THROW(write(1, id + 1, 10), ExceptionBase);
    EXPECT_THROW(write(2, id, 10), ExceptionBase);
    write(1, id, size);
    EXPECT_THROW(write(1, id, 10), ExceptionBase) << "the request is closed once answered";
    EXPECT_EQ(Counters().bytesWritten, static_cast<std::uint64_t>(size));
    EXPECT_EQ(Counters().writesRejected, 4u);
}

// ---- Encrypted content ------------------------------------------------------------------------------

TEST_F(MediaBackendTest, EncryptedSamplesWaitForTheirKeyFromTheDrmBackendItAskedFor) {
    const auto drm = ReferenceDrmBackend::Create(ReferenceDrmBackend::kClearKey, options, faults);
    DrmRecorder drmEvents(*drm);
    Load(UVABackend::TYPE_MEDIA_SOURCE, {{kVideo.type, 1, true, 0, "video/mp4"}});
    std::vector<std::string> asked;
    backend->ConnectDrmBackendRequest([&](std::string keySystem, Velmora::IDrmBackend*& answer) {
        asked.push_back(keySystem);
        answer = drm.get();
    });
    backend->Step();
    Write(1, {EncryptedSample(0), EncryptedSample(500)}, UVABackend::WRITE_DATA_END_OF_STREAM);
    Steps(3);
    EXPECT_THAT(asked, ElementsAre("org.w3.clearkey"));
    EXPECT_TRUE(backend->GetStatus().waitingForKey);
    EXPECT_EQ(backend->GetStatus().positionSeconds, 0.0);

    drm->Step();
    const auto needed = drmEvents.Of<Velmora::UvaNeedKeyDRMEvent>();
    ASSERT_EQ(needed.size(), 1u) << "each key id is announced once";
    EXPECT_EQ(Text(needed[0]->initData, needed[0]->initDataSize), kKeyId);
    drm->GenerateKeyRequest(Bytes(kKeyId), 16);
    drm->AddKey(Bytes(kKey), 16, nullptr, 0, "session-1");
    Steps(10);
    const auto status = backend->GetStatus();
    EXPECT_TRUE(status.finished);
    EXPECT_FALSE(status.waitingForKey);
    EXPECT_EQ(status.counters.samplesDecrypted, 2u);
}

TEST_F(MediaBackendTest, WithoutADrmBackendEncryptedSamplesAreReportedOnceAndSkipped) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {{kVideo.type, 1, true, 0, "video/mp4"}});
    backend->Step();  // nobody answers the DRM request
    Write(1, {EncryptedSample(0), EncryptedSample(500)}, UVABackend::WRITE_DATA_END_OF_STREAM);
    Steps(10);
    EXPECT_EQ(events->Of<Velmora::DRMRightsErrorEvent>().size(), 1u);
    EXPECT_EQ(Counters().samplesUndecryptable, 2u);
    EXPECT_TRUE(backend->GetStatus().finished);
}

// ---- Components -------------------------------------------------------------------------------------

TEST_F(MediaBackendTest, AComponentIsAnnouncedBeforeItsStateAndOutlivesItsRemoval) {
    Load(UVABackend::TYPE_MEDIA, {});
    std::vector<std::string> seen;
    events->onEvent = [&seen](const boost::shared_ptr<BackendEvent>& event) {
        const auto* change = dynamic_cast<const Velmora::ComponentChangedEvent*>(event.get());
        if (change == nullptr) {
            return;
        }
        // As the library does: read the component, and follow its state from the announcement on.
        auto* component = static_cast<ReferenceComponent*>(change->component);
        seen.push_back(std::to_string(change->action) + component->Language());
        if (change->action == Velmora::ComponentChangedEvent::Added) {
            component->ConnectStateChanged([&seen](bool active) { seen.push_back(active ? "active" : "inactive"); });
        }
    };
    backend->Step();
    backend->Stop();
    backend->Step();
    EXPECT_THAT(seen, ElementsAre("0", "active", "0eng", "active", "0deu", "active", "0eng", "active", "1", "1eng",
                                  "1deu", "1eng"));
}

TEST_F(MediaBackendTest, SelectingATrackDeselectsTheOtherOfItsKind) {
    Load(UVABackend::TYPE_MEDIA, {});
    backend->Step();
    events->Clear();
    const auto components = backend->Components();
    const auto& english = components[1];
    const auto& german = components[2];
    ASSERT_EQ(german->Language(), "deu");

    backend->SelectComponent(german.get());
    backend->Step();
    const auto changes = events->Of<Velmora::ComponentChangedEvent>();
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0]->component, english.get());
    EXPECT_EQ(changes[1]->component, german.get());
    EXPECT_THAT(changes, Each(::testing::Pointee(::testing::Field(&Velmora::ComponentChangedEvent::action,
                                                                   Velmora::ComponentChangedEvent::Changed))));
    EXPECT_TRUE(german->IsSelected());
    EXPECT_FALSE(english->IsSelected());
    ReferenceComponent stranger(ReferenceComponent::Audio, 0, "fra");
    EXPECT_THROW(backend->SelectComponent(&stranger), ExceptionBase);
}

TEST_F(MediaBackendTest, ASlotThatThrowsCostsOnlyItsOwnNotification) {
    Load(UVABackend::TYPE_MEDIA, {});
    backend->ConnectEvent([](boost::shared_ptr<BackendEvent>) { throw 1; });
    EXPECT_NO_THROW(backend->Step());
    EXPECT_EQ(events->Types().size(), 7u) << "every event still reaches the slots connected before";
}

}  // namespace
