#pragma once
// Asserts at the end of a test that every browser-side object the test made or the library created
// (events, components, back-ends, samples, sources) is gone again: nothing leaked, nothing left over.

#include <gtest/gtest.h>

#include <ostream>

#include "Support/LogCapture.h"
#include "Uva/UVALiveObjects.h"

inline void PrintTo(const UvaLiveObjects& live, std::ostream* out) {
    *out << live.events << " events, " << live.drmEvents << " DRM events, " << live.components << " components, "
         << live.backends << " back-ends, " << live.drmBackends << " DRM back-ends, " << live.samples << " samples, "
         << live.sources << " sources";
}

namespace VelmoraTest {

// The check runs in the destructor, after the derived fixture's own members (clients, wrappers) are gone.
class LiveObjectsTest : public ::testing::Test {
protected:
    ~LiveObjectsTest() override { EXPECT_EQ(uvaLiveObjects(), atStart_) << "browser-side objects alive"; }

    LogCapture log;

private:
    const UvaLiveObjects atStart_ = uvaLiveObjects();
};

}  // namespace VelmoraTest
