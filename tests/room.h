// A test of the provider's rooms: its own system, trace and agent directory, and the host's broker for what the rooms
// ask of an object manager.
#ifndef OXT_ROOM_H
#define OXT_ROOM_H

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agentDirectory.h"
#include "fakeSystem.h"
#include "oxtCmpi.h"
#include "oxtFile.h"
#include "oxtFsDevice.h"
#include "oxtFsLife.h"
#include "oxtFsMount.h"
#include "oxtFsSnapshot.h"
#include "oxtFsStatus.h"
#include "oxtFsStore.h"
#include "oxtFsSystem.h"
#include "oxtFsTurn.h"
#include "oxtFsWatch.h"
#include "oxtHostBroker.h"
#include "oxtIndex.h"
#include "oxtMemory.h"
#include "oxtPaths.h"
#include "oxtService.h"
#include "oxtShm.h"
#include "oxtThread.h"
#include "oxtTrace.h"
#include "traceLog.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Ids = std::vector<unsigned>;

class Room : public testing::Test {
  protected:
    // Outside service mode, nothing initialised, no file systems.
    void SetUp() override {
        ASSERT_TRUE(emptyAgentDirectory()) << "the agent directory must lie in the build directory";
        broker = std::make_shared<oxthost::Broker>(oxthost::Options{});
        newRequest();
        g_srvmod.store(0);
        gfs_first.store(OXT_FS_UNINITIALISED);
        gfs_SleepSec.store(60);
    }
    // Ends what the test has begun, and finds nothing left of it.
    void TearDown() override {
        system.stopInjecting();
        if (gfs_thid.load() != 0)
            fsExitThread(&cInfo);
        fsFreeInstance(&cInfo);
        EXPECT_THAT(system.segments(), IsEmpty());
        EXPECT_THAT(broker->registry.misuses(), IsEmpty());
    }

    // What the last one made is gone, as at the end of each call of an object manager.
    void newRequest() {
        request.reset();
        request.emplace(*broker);
        auto context = std::make_shared<oxthost::ContextBody>();
        context->thread = std::this_thread::get_id();
        cInfo = {&broker->face, broker->make(std::move(context))};
    }
    // Two ext4 file systems of 1000 MiB (warning at 100, fatal at 10) with 500 MiB free.
    void mountTwo() {
        system.addFileSystem("/dev/sda1", 8, "/", "ext4", 1000, 500);
        system.addFileSystem("/dev/sda2", 8, "/data", "ext4", 1000, 500);
    }
    void initialise() {
        ASSERT_EQ(fsInitProvider(&cInfo), 0);
        fsLeaveProvider();
        trace.clear();
    }
    // Runs with nobody listening to the trace: the rooms then take shorter ways to the same results.
    template <class Action> auto silently(Action action) {
        const void *setFilePath = g_Func[OXT_FUNC_SETFILEPATH].exchange(nullptr);
        const void *traceLog = g_Func[OXT_FUNC_TRACELOG].exchange(nullptr);
        const auto result = action();
        g_Func[OXT_FUNC_SETFILEPATH].store(setFilePath);
        g_Func[OXT_FUNC_TRACELOG].store(traceLog);
        return result;
    }
    const DatInfo *area(int cid) { return &fsCurrent()->areas[cid]; }
    const FsProv &stored(int i) { return fsProv(area(OXT_CID_FS_PROV))[i]; }
    // What another pass finds in the store, and in the segments.
    template <class Change> void storeChange(int i, Change change) {
        FsSnapshot *next = fsCopySnapshot(fsCurrent(), true);
        change(fsProv(&next->areas[OXT_CID_FS_PROV])[i]);
        EXPECT_EQ(fsPublish("test", &cInfo, next), 0);
        fsInstall(next);
    }
    // The records of a class as a handler gets them.
    template <class Record> std::vector<Record> get(int classId, int result = 0) {
        FsRecords read = {};
        EXPECT_EQ(fsGetInstance(&cInfo, classId, &read), result);
        const Record *first = static_cast<Record *>(read.area.datAdr);
        std::vector<Record> records(first, first + read.area.datNum);
        fsReleaseInstance(&read);
        return records;
    }
    std::vector<std::string> roots() {
        std::vector<std::string> dirs;
        for (int i = 0; i < area(OXT_CID_FS_PROV)->datNum; ++i)
            dirs.emplace_back(stored(i)._root);
        return dirs;
    }
    FakeSystem system;
    TraceLog trace;
    std::shared_ptr<oxthost::Broker> broker;
    std::optional<oxthost::RequestScope> request;
    OxtCInfo cInfo = {};
};

#endif
