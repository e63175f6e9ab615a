#include <gmock/gmock.h>

#include "Recorders.h"
#include "ReferenceMediaBackend.h"
#include "SampleValidation.h"
#include "Velmora/Exceptions.h"

namespace {

using Velmora::DecoderBuffer;
using Velmora::IBackend;
using Velmora::Reference::ReferenceMediaBackend;
using namespace ReferenceTest;

using Source = IBackend::SourceDescriptionOperaStreaming;
const Source kVideo{UVABackend::SourceDescription::SOURCE_VIDEO, 1, false, 0, "video/mp4"};
const auto kOk = UVABackend::WRITE_DATA_OK;
const auto kEnd = UVABackend::WRITE_DATA_END_OF_STREAM;

class MediaBackendTest : public ::testing::Test {
protected:
    // A playing back-end of `type` initialised with `sources`, nothing raised yet.
    void Load(int type, const std::vector<Source>& sources = {kVideo}) {
        backend = ReferenceMediaBackend::Create(type, ManualOptions(), std::make_shared<FaultInjector>());
        events.reset(new EventRecorder(*backend));
        backend->InitBackend("blob:mse", sources, false);
        backend->Play();
    }

    // Steps `count` times and returns what that raised.
    std::vector<BackendEvent::EventType> Raised(int count = 1) {
        events->raised.clear();
        for (int i = 0; i < count; ++i) {
            backend->Step();
        }
        return events->Types();
    }

    void Write(std::int32_t sourceId, std::vector<DecoderBuffer> samples, UVABackend::WriteDataStatus status = kOk) {
        backend->WriteMseData(Answer(sourceId, std::move(samples)), status);
    }

    ReferenceMediaBackend::Counters Counters() const { return backend->GetStatus().counters; }

    boost::shared_ptr<ReferenceMediaBackend> backend;
    std::unique_ptr<EventRecorder> events;
};

const auto kComponent = BackendEvent::ComponentChanged;

// Each answered request is asked again; a seek voids what was asked and written for the old position;
// the content ends where every stream ended.
TEST_F(MediaBackendTest, Step_MediaSourceWithSeek) {
    Load(UVABackend::TYPE_MEDIA_SOURCE);
    EXPECT_THAT(Raised(),
                ElementsAre(BackendEvent::DurationChanged, BackendEvent::VideoResized, kComponent, kComponent,
                            kComponent, kComponent, BackendEvent::NeedMseData, BackendEvent::BufferingStreamUnderrun));
    Write(1, {Sample(0), Sample(500)});
    EXPECT_THAT(Raised(), ElementsAre(BackendEvent::NeedMseData, BackendEvent::BufferingStreamBuffered));
    ASSERT_TRUE(backend->SetPosition(0.5));
    EXPECT_THAT(Raised(), ElementsAre(BackendEvent::CancelDataRequests, BackendEvent::SeekCompleted,
                                      BackendEvent::NeedMseData, BackendEvent::BufferingStreamUnderrun));
    EXPECT_EQ(events->Of<Velmora::CancelDataRequestsEvent>().at(0)->requestId, 1) << "named by the source's id";
    unsigned int bytes = 1;
    backend->GetBytesInBuffer(bytes);
    EXPECT_EQ(bytes, 0u);
    Write(1, {Sample(500)}, kEnd);
    EXPECT_THAT(Raised(20), ElementsAre(BackendEvent::BufferingStreamBuffered, BackendEvent::PlaybackFinished));
    EXPECT_EQ(backend->GetStatus().positionSeconds, 1.0);
    EXPECT_EQ(Counters().samplesPlayed, 2u);
}

TEST_F(MediaBackendTest, SelectComponent_OnePerKind) {
    Load(UVABackend::TYPE_MEDIA_SOURCE);
    Raised();
    const auto components = backend->Components();  // video, audio eng, audio deu, subtitles
    backend->SelectComponent(components.at(2).get());
    EXPECT_FALSE(components[1]->IsSelected());
    EXPECT_TRUE(components[2]->IsSelected());
    EXPECT_THAT(Raised(), ElementsAre(kComponent, kComponent));
    EXPECT_THROW(backend->SelectComponent(nullptr), ExceptionBase);
}

// ---- What the browser writes ----------------------------------------------------------------------

struct SampleCase {
    const char* name;
    std::function<void(DecoderBuffer&)> change;
    const char* problem;  // empty: the sample is sound
};

class SampleValidation : public ::testing::TestWithParam<SampleCase> {};

TEST_P(SampleValidation, ProblemWith_Sample) {
    DecoderBuffer sample = Sample(0, false);
    GetParam().change(sample);
    const char* problem = Velmora::Reference::ProblemWith(sample);
    EXPECT_STREQ(problem == nullptr ? "" : problem, GetParam().problem);
}

using Sub = Velmora::SubSampleEncryptionInfo;

void MakeClear(DecoderBuffer& s) {
    Put(s.keyId, s.keyIdSize, "");
    Put(s.iv, s.ivSize, "");
}

std::function<void(DecoderBuffer&)> SubSamples(std::vector<Sub> subSamples, bool clear = false) {
    return [subSamples, clear](DecoderBuffer& s) {
        if (clear) {
            MakeClear(s);
        }
        s.subSamples = subSamples;
    };
}

const std::vector<SampleCase> kSamples = {
    {"ShortIv", [](DecoderBuffer& s) { Put(s.iv, s.ivSize, "iv8bytes"); }, ""},
    {"SubSamplesCoveringTheData", SubSamples({{4, 0}, {1, 5}}), ""},
    {"SubSamplesShortOfTheData", SubSamples({{2, 7}}), "sub-samples that do not cover the sample"},
    // 0xffffffff + 11 wraps to 10, the data size, in 32-bit arithmetic.
    {"SubSamplesWrappingAround", SubSamples({{0xffffffffu, 11}}), "sub-samples that do not cover the sample"},
    {"ClearWithSubSamples", SubSamples({{10, 0}}, true), "a clear sample with encryption data"},
    {"ClearWithIv", [](DecoderBuffer& s) { Put(s.keyId, s.keyIdSize, ""); }, "a clear sample with encryption data"},
    {"KeyIdOf8Bytes", [](DecoderBuffer& s) { Put(s.keyId, s.keyIdSize, "8 bytes!"); }, "a key id that is not 16 bytes"},
    {"IvOf12Bytes", [](DecoderBuffer& s) { Put(s.iv, s.ivSize, "twelve bytes"); },
     "an initialisation vector that is not 8 or 16 bytes"},
    {"NoData", [](DecoderBuffer& s) { Put(s.data, s.dataSize, ""); }, "a sample without data"},
    {"LengthWithoutBuffer", [](DecoderBuffer& s) { s.codecConfigSize = 4; }, "a buffer and its length disagree"},
    {"NegativeTimestamp", [](DecoderBuffer& s) { s.timestamp = -1; }, "a sample without a valid time"},
    {"NoDuration", [](DecoderBuffer& s) { s.duration = 0; }, "a sample without a valid time"}};

INSTANTIATE_TEST_SUITE_P(Samples, SampleValidation, ::testing::ValuesIn(kSamples),
                         [](const auto& info) { return std::string(info.param.name); });

// An answer is refused as a whole when it does not fit the request; one bad sample is not.
TEST_F(MediaBackendTest, WriteMseData_AnswerDoesNotFit) {
    Load(UVABackend::TYPE_MEDIA_SOURCE);
    auto overfull = Answer(1, {Sample(0), Sample(500)});
    overfull->count = 1;
    const boost::shared_ptr<BackendEvent> answers[] = {
        boost::make_shared<Velmora::NeedMseDataEvent>(1, 4),  // the request, not an answer
        Answer(9, {Sample(0)}),                               // a source nobody attached
        overfull,
    };
    for (const auto& answer : answers) {
        EXPECT_THROW(backend->WriteMseData(answer, kOk), ExceptionBase);
    }
    auto withEmptyEntries = Answer(1, {Sample(0), Sample(0, false)});
    withEmptyEntries->buffers->back().duration = 0;
    withEmptyEntries->count = 4;  // the browser filled two of four
    backend->WriteMseData(withEmptyEntries, kOk);
    EXPECT_EQ(Counters().writesRejected, 3u);
    EXPECT_EQ(Counters().samplesValid, 1u);
    EXPECT_EQ(Counters().samplesInvalid, 1u);
}

TEST_F(MediaBackendTest, WriteData_NotTheOpenRequest) {
    Load(UVABackend::TYPE_MEDIA);
    backend->Step();
    const auto request = events->Of<Velmora::NeedDataEvent>().at(0);
    const auto write = [this, &request](std::int32_t source, std::int32_t requestId, std::int32_t bytes) {
        backend->WriteData(boost::make_shared<Velmora::NeedDataEvent>(source, requestId, 0, request->fourth), bytes,
                           kOk);
    };
    // More bytes than asked for, another request, another source.
    EXPECT_THROW(write(1, request->second, request->fourth + 1), ExceptionBase);
    EXPECT_THROW(write(1, request->second + 1, 10), ExceptionBase);
    EXPECT_THROW(write(2, request->second, 10), ExceptionBase);
    write(1, request->second, request->fourth);
    EXPECT_THROW(write(1, request->second, 10), ExceptionBase) << "the request is closed once answered";
    EXPECT_EQ(Counters().bytesWritten, static_cast<std::uint64_t>(request->fourth));
    EXPECT_EQ(Counters().writesRejected, 4u);
}

TEST_F(MediaBackendTest, WriteMseData_EncryptedWithoutDrm) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {{kVideo.type, 1, true, 0, "video/mp4"}});
    backend->Step();  // nobody answers the DRM request
    Write(1, {Sample(0, false), Sample(500, false)}, kEnd);
    Raised(10);
    EXPECT_EQ(events->Of<Velmora::DRMRightsErrorEvent>().size(), 1u);
    EXPECT_EQ(Counters().samplesUndecryptable, 2u);
    EXPECT_TRUE(backend->GetStatus().finished);
}

TEST_F(MediaBackendTest, Step_SlotThrows) {
    Load(UVABackend::TYPE_MEDIA_SOURCE);
    backend->ConnectEvent([](boost::shared_ptr<BackendEvent>) { throw 1; });
    EXPECT_EQ(Raised().size(), 8u) << "every event still reaches the slots connected before";
}

}  // namespace
