#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "AvComponentWrapper.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"

namespace {

using namespace ::testing;
using Velmora::AvComponentDescription;
using Velmora::Wrapper::AvComponentWrapper;
using VelmoraTest::LogLine;

class AvComponentWrapperTest : public VelmoraTest::LiveObjectsTest {
protected:
    NiceMock<VelmoraTest::MockAvComponent> component{"spa", 2};
};

TEST_F(AvComponentWrapperTest, Construct_DescriptionCopied) {
    component.componentTag = 3, component.aspectRatio = 1.5, component.pid = 0x101, component.audioChannels = 6;
    component.encrypted = true, component.audioDescription = 1, component.hearingImpaired = 1, component.index = 9;
    component.SetText(&AvComponentDescription::encoding, "ac3");
    component.SetText(&AvComponentDescription::label, "Spanish");
    component.SetText(&AvComponentDescription::role, "main");
    component.SetText(&AvComponentDescription::id, "a1");
    auto* wrapper = new AvComponentWrapper(&component);

    EXPECT_THAT(std::vector<double>({double(wrapper->type), double(wrapper->componentTag), wrapper->aspectRatio,
                                     double(wrapper->pid), double(wrapper->audioChannels), double(wrapper->encrypted),
                                     double(wrapper->audioDescription), double(wrapper->hearingImpaired),
                                     double(wrapper->index), double(wrapper->state)}),
                ElementsAre(2, 3, 1.5, 0x101, 6, 1, 1, 1, 9, 0));
    const std::pair<const char*, const char*> texts[] = {{wrapper->encoding, component.encoding},
                                                         {wrapper->language, component.language},
                                                         {wrapper->label, component.label},
                                                         {wrapper->role, component.role},
                                                         {wrapper->id, component.id}};
    for (const auto& [copy, original] : texts) {
        EXPECT_NE(copy, original) << "texts are never shared";
        EXPECT_STREQ(copy, original);
    }
    wrapper->BackendMarkUnused();
}

TEST_F(AvComponentWrapperTest, Destroy_StateChangesReachNothing) {
    auto* wrapper = new AvComponentWrapper(&component);
    const std::string address = PrintToString(static_cast<const void*>(wrapper));
    wrapper->BackendMarkUnused();
    component.SetActive(true);  // must not touch the deleted wrapper
    EXPECT_EQ(component.state.num_slots(), 0u);
    EXPECT_THAT(
        log.Records("Velmora::AV"),
        ElementsAre(
            LogLine(
                2,
                "AvComponentWrapper________CREATED!__________________________________________________________________" +
                    address),
            LogLine(2, "BackendMarkUnused" + address),
            LogLine(
                2,
                "~AvComponentWrapper____________________________________________________DELETED______________________" +
                    address)));
}

}  // namespace
