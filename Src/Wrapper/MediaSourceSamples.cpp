#include "MediaSourceSamples.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <memory>
#include <vector>

#include "Utilities.h"

namespace Velmora {
namespace Wrapper {

namespace {

// Frees the nodes it still holds, so an interrupted copy leaks none of the browser's list.
class SubSampleList {
public:
    explicit SubSampleList(UVABackend::MediaSample::SubSample* head) : head_(head) {}
    ~SubSampleList() {
        while (!Empty()) {
            Pop();
        }
    }
    SubSampleList(const SubSampleList&) = delete;
    SubSampleList& operator=(const SubSampleList&) = delete;

    bool Empty() const { return head_ == nullptr; }
    SubSampleEncryptionInfo Pop() {
        const std::unique_ptr<UVABackend::MediaSample::SubSample> node(head_);
        head_ = node->next;
        return {node->clearBytes, node->encryptedBytes};
    }

private:
    UVABackend::MediaSample::SubSample* head_;
};

std::vector<SubSampleEncryptionInfo> TakeSubSamples(UVABackend::MediaSample& sample) {
    std::vector<SubSampleEncryptionInfo> infos;
    SubSampleList list(sample.takeSubSamples());
    while (!list.Empty()) {
        infos.push_back(list.Pop());
    }
    return infos;
}

// An empty buffer stays null: nothing is allocated for it.
boost::shared_ptr<unsigned char> SharedCopyOf(const UVABackend::MediaSample::Buffer& buffer) {
    return buffer.size() == 0 ? nullptr : Utilities::CopyToSharedBytes(buffer.bytes(), buffer.size());
}

// Filled in place in the list the media stack receives: nothing is copied twice.
void FillDecoderBuffer(DecoderBuffer& buffer, UVABackend::MediaSample& sample) {
    buffer.subSamples = TakeSubSamples(sample);
    buffer.data = SharedCopyOf(sample.data);
    buffer.dataSize = sample.data.size();
    buffer.keyId = SharedCopyOf(sample.keyId);
    buffer.keyIdSize = sample.keyId.size();
    buffer.iv = SharedCopyOf(sample.iv);
    buffer.ivSize = sample.iv.size();
    buffer.codecConfig = SharedCopyOf(sample.codecConfig);
    buffer.codecConfigSize = sample.codecConfig.size();
    buffer.streamId = sample.streamId;
    buffer.encryptionScheme = sample.encryptionScheme;
    buffer.timestamp = static_cast<double>(sample.timestampMs);
    buffer.duration = sample.durationMs;
    buffer.keyFrame = sample.keyFrame;
    buffer.configVersion = sample.configVersion;
    buffer.width = sample.width;
    buffer.height = sample.height;
    buffer.sampleRate = sample.sampleRate;
}

}  // namespace

// One buffer per sample present; the count stays the browser's.
boost::shared_ptr<BackendEvent> WriteMseDataOf(::NeedMSEDataEvent& answer) {
    auto buffers = boost::make_shared<std::vector<DecoderBuffer>>();
    UVABackend::MediaSample* const* const samples = answer.samples;
    if (samples != nullptr) {
        // The list's block is allocated once, for exactly the samples present.
        const auto present = std::count_if(samples, samples + answer.count,
                                           [](const UVABackend::MediaSample* sample) { return sample != nullptr; });
        buffers->reserve(static_cast<std::size_t>(present));
        for (std::uint32_t index = 0; index < answer.count; ++index) {
            if (UVABackend::MediaSample* const sample = samples[index]) {
                FillDecoderBuffer(buffers->emplace_back(), *sample);
            }
        }
    }
    return boost::make_shared<WriteMseDataEvent>(answer.sourceId, std::move(buffers), answer.count);
}

}  // namespace Wrapper
}  // namespace Velmora
