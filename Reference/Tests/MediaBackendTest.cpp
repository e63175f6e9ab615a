#include <gmock/gmock.h>

#include "Recorders.h"
#include "ReferenceMediaBackend.h"
#include "Velmora/Exceptions.h"

namespace {

using Velmora::DecoderBuffer;
using Velmora::IBackend;
using Velmora::Reference::ReferenceMediaBackend;
using namespace ReferenceTest;

using Source = IBackend::SourceDescriptionOperaStreaming;
const Source kVideo{UVABackend::SourceDescription::SOURCE_VIDEO, 1, false, 0, "video/mp4"};

class MediaBackendTest : public ::testing::Test {
protected:
    // A playing back-end of `type` initialised with `sources` (with a URL when there are none), nothing raised yet.
    void Load(int type, const std::vector<Source>& sources) {
        backend = ReferenceMediaBackend::Create(type, options, faults);
        events.reset(new EventRecorder(*backend));
        if (sources.empty()) {
            backend->InitBackend("http://example.test/movie.mp4", IBackend::SourceDescriptionBackendStreaming{}, false);
        } else {
            backend->InitBackend("blob:mse", sources, false);
        }
        backend->Play();
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

// ---- The samples of WriteMseData -------------------------------------------------------------------

struct SampleCase {
    const char* name;
    std::function<void(DecoderBuffer&)> change;
    const char* problem;  // null: the sample is sound
};

class SampleValidation : public MediaBackendTest, public ::testing::WithParamInterface<SampleCase> {};

TEST_P(SampleValidation, WriteMseData_Sample) {
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
        SampleCase{"EncryptedWhole", [](DecoderBuffer&) {}, nullptr}, SampleCase{"Clear", MakeClear, nullptr},
        SampleCase{"ShortIv", [](DecoderBuffer& s) { Put(s.iv, s.ivSize, "iv8bytes"); }, nullptr},
        SampleCase{"SubSamplesCoveringTheData",
                   [](DecoderBuffer& s) {
                       s.subSamples = {Sub{4, 0}, Sub{1, 5}};
                   },
                   nullptr},
        SampleCase{"SubSamplesShortOfTheData",
                   [](DecoderBuffer& s) {
                       s.subSamples = {Sub{2, 7}};
                   },
                   "sub-samples that do not cover the sample"},
        // 0xffffffff + 11 wraps to 10, the data size, in 32-bit arithmetic.
        SampleCase{"SubSamplesWrappingAround",
                   [](DecoderBuffer& s) {
                       s.subSamples = {Sub{0xffffffffu, 11}};
                   },
                   "sub-samples that do not cover the sample"},
        SampleCase{"ClearWithSubSamples",
                   [](DecoderBuffer& s) {
                       MakeClear(s);
                       s.subSamples = {Sub{10, 0}};
                   },
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

TEST_F(MediaBackendTest, WriteMseData_AnswerDoesNotFit) {
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

TEST_F(MediaBackendTest, WriteData_NotTheOpenRequest) {
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

TEST_F(MediaBackendTest, WriteMseData_EncryptedWithoutDrm) {
    Load(UVABackend::TYPE_MEDIA_SOURCE, {{kVideo.type, 1, true, 0, "video/mp4"}});
    backend->Step();  // nobody answers the DRM request
    Write(1, {EncryptedSample(0), EncryptedSample(500)}, UVABackend::WRITE_DATA_END_OF_STREAM);
    Steps(10);
    EXPECT_EQ(events->Of<Velmora::DRMRightsErrorEvent>().size(), 1u);
    EXPECT_EQ(Counters().samplesUndecryptable, 2u);
    EXPECT_TRUE(backend->GetStatus().finished);
}

TEST_F(MediaBackendTest, Step_SlotThrows) {
    Load(UVABackend::TYPE_MEDIA, {});
    backend->ConnectEvent([](boost::shared_ptr<BackendEvent>) { throw 1; });
    EXPECT_NO_THROW(backend->Step());
    EXPECT_EQ(events->Types().size(), 7u) << "every event still reaches the slots connected before";
}

}  // namespace
