#include "MediaSourceSamples.h"

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

DecoderBuffer DecoderBufferOf(UVABackend::MediaSample& sample) {
    DecoderBuffer buffer;
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
    return buffer;
}

}  // namespace

// One buffer per sample present; the count stays the browser's.
boost::shared_ptr<BackendEvent> WriteMseDataOf(::NeedMSEDataEvent& answer) {
    const auto buffers = boost::make_shared<std::vector<DecoderBuffer>>();
    for (std::uint32_t index = 0; answer.samples != nullptr && index < answer.count; ++index) {
        if (UVABackend::MediaSample* const sample = answer.samples[index]) {
            buffers->push_back(DecoderBufferOf(*sample));
        }
    }
    return boost::make_shared<WriteMseDataEvent>(answer.sourceId, buffers, answer.count);
}

}  // namespace Wrapper
}  // namespace Velmora
