#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "EntryPoints.h"
#include "Support/LogCapture.h"
#include "Uva/UVABackendLibrary.h"

namespace {

using namespace ::testing;
using Velmora::Callbacks;
using Velmora::SetCallbacks;

UVABackend* const kBackend = reinterpret_cast<UVABackend*>(0x1000);
UVADRMBackend* const kDrmBackend = reinterpret_cast<UVADRMBackend*>(0x2000);
UVAClient* const kClient = reinterpret_cast<UVAClient*>(0x3000);
UVADRMClient* const kDrmClient = reinterpret_cast<UVADRMClient*>(0x4000);

// Starts every test from the table as the library has it at load time, and puts the table back after.
class EntryPointsTest : public Test {
protected:
    EntryPointsTest() : saved_(Velmora::uvaCallbacks) { SetCallbacks(Callbacks{}); }
    ~EntryPointsTest() override { SetCallbacks(saved_); }

    // A table whose members record their arguments and answer fixed values.
    Callbacks RecordingTable() {
        Callbacks table;
        table.requestBackend = [this](UVABackend::UVABackendType type, UVAClient* client) {
            return calls.push_back("request " + std::to_string(type) + (client == kClient ? " client" : " other")),
                   kBackend;
        };
        table.releaseBackend = [this](UVABackend* backend) {
            return calls.push_back(backend == kBackend ? "release backend" : "release other"), UVA_STATUS_ERROR_3;
        };
        table.requestDrmBackend = [this](const char* id, UVADRMClient* client) {
            return calls.push_back(std::string("drm request ") + id + (client == kDrmClient ? " client" : " other")),
                   kDrmBackend;
        };
        table.releaseDrmBackend = [this](UVADRMBackend* backend) {
            return calls.push_back(backend == kDrmBackend ? "drm release backend" : "drm release other"), UVA_STATUS_OK;
        };
        table.getSupportedBackendIDs = [this](const char**&) { return calls.push_back("ids"), UVA_STATUS_ERROR_2; };
        return table;
    }

    // Every entry point that goes through the table, with what each answered.
    static std::vector<int> CallAll() {
        return {UVA_RequestBackend(UVABackend::TYPE_VIDEO_BROADCAST, kClient) == kBackend, UVA_ReleaseBackend(kBackend),
                UVADRM_RequestBackend("org.w3.clearkey", kDrmClient) == kDrmBackend,
                UVADRM_ReleaseBackend(kDrmBackend)};
    }

    VelmoraTest::LogCapture log;
    std::vector<std::string> calls;

private:
    Callbacks saved_;
};

TEST_F(EntryPointsTest, EntryPoints_NoTable) {
    EXPECT_EQ(UVA_RequestBackend(UVABackend::TYPE_MEDIA, kClient), nullptr);
    EXPECT_EQ(UVA_ReleaseBackend(kBackend), UVA_STATUS_ERROR);
    EXPECT_EQ(UVA_ReleaseBackend(nullptr), UVA_STATUS_ERROR);
    EXPECT_EQ(UVADRM_RequestBackend("org.w3.clearkey", kDrmClient), nullptr);
    EXPECT_EQ(UVADRM_ReleaseBackend(kDrmBackend), UVA_STATUS_ERROR);
    EXPECT_THAT(log.Records(), IsEmpty());
}

TEST_F(EntryPointsTest, GetSupportedBackendIDs_FixedList) {
    SetCallbacks(RecordingTable());
    const char** ids = nullptr;
    ASSERT_EQ(UVADRM_GetSupportedBackendIDs(ids), UVA_STATUS_OK);
    ASSERT_NE(ids, nullptr);
    EXPECT_THAT(std::vector<std::string>(ids, ids + 4), ElementsAre("com.youtube.playready", "urn:dvb:casystemid:19219",
                                                                    "org.w3.clearkey", "webkit-org.w3.clearkey"));
    EXPECT_EQ(ids[4], nullptr);
    delete[] ids;
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(EntryPointsTest, SetCallbacks_TableVariants) {
    using Strings = std::vector<std::string>;
    const Strings all{"request 2 client", "release backend", "drm request org.w3.clearkey client",
                      "drm release backend"};
    const struct {
        const char* name;
        std::function<void(Callbacks&)> change;  // to the table installed over an earlier recording one
        bool thenItself;
        Strings calls;
        std::vector<int> results;
    } rows[] = {
        {"as_given", [](Callbacks&) {}, false, all, {1, UVA_STATUS_ERROR_3, 1, UVA_STATUS_OK}},
        {"assigned_to_itself", [](Callbacks&) {}, true, all, {1, UVA_STATUS_ERROR_3, 1, UVA_STATUS_OK}},
        {"empty_member_silences_only_its_entry_point",
         [](Callbacks& table) { table.releaseBackend.clear(); },
         false,
         {all[0], all[2], all[3]},
         {1, UVA_STATUS_ERROR, 1, UVA_STATUS_OK}},
        {"later_table_replaces_the_earlier",
         [](Callbacks& table) {
             table = Callbacks{}, table.releaseBackend = [](UVABackend*) { return UVA_STATUS_ERROR_2; };
         },
         false,
         {},
         {0, UVA_STATUS_ERROR_2, 0, UVA_STATUS_ERROR}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SetCallbacks(RecordingTable());
        Callbacks table = RecordingTable();
        row.change(table);
        SetCallbacks(table);
        if (row.thenItself) SetCallbacks(Velmora::uvaCallbacks);
        calls.clear();
        EXPECT_THAT(CallAll(), ElementsAreArray(row.results));
        EXPECT_EQ(calls, row.calls);
    }
}

}  // namespace
