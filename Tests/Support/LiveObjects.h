#pragma once
// Asserts at the end of a test that every browser-side object the test made or the library created
// (events, components, back-ends, samples, sources) is gone again: nothing leaked, nothing left over.

#include <gtest/gtest.h>

#include "Support/LogCapture.h"
#include "Uva/UVALiveObjects.h"

namespace VelmoraTest {

// The check runs in the destructor, after the derived fixture's own members (clients, wrappers) are gone.
class LiveObjectsTest : public ::testing::Test {
protected:
    LiveObjectsTest() : atStart_(uvaLiveObjects()) {}
    ~LiveObjectsTest() override {
        const UvaLiveObjects now = uvaLiveObjects();
        EXPECT_EQ(now.events, atStart_.events) << "browser events alive";
        EXPECT_EQ(now.drmEvents, atStart_.drmEvents) << "browser DRM events alive";
        EXPECT_EQ(now.components, atStart_.components) << "components alive";
        EXPECT_EQ(now.backends, atStart_.backends) << "back-ends alive";
        EXPECT_EQ(now.drmBackends, atStart_.drmBackends) << "DRM back-ends alive";
        EXPECT_EQ(now.samples, atStart_.samples) << "samples alive";
        EXPECT_EQ(now.sources, atStart_.sources) << "source descriptions alive";
    }

    LogCapture log;

private:
    UvaLiveObjects atStart_;
};

}  // namespace VelmoraTest
